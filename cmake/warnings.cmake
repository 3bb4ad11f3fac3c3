# Shared compile settings for every target of the tree.
option(FORMATV2_WERROR "Treat warnings as errors" OFF)

function(formatv2_set_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(FORMATV2_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
