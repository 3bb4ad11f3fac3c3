# Shared compile settings for every target of the tree.
option(FORMATV2_WERROR "Treat warnings as errors" OFF)

function(formatv2_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(FORMATV2_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# Settings of every library whose code goes into the module: warnings, and no unique symbols.
# GCC marks static locals of inline functions and templates (libstdc++'s digit tables among
# them) as unique symbols, and a library holding one can never be unloaded: dlclose would keep
# the module in the host's process. Everything of ours is hidden, so plain local copies are safe.
function(formatv2_module_code target)
  formatv2_set_warnings(${target})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -fno-gnu-unique)
  endif()
endfunction()
