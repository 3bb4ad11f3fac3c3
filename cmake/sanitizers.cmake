# FORMATV2_SANITIZE: "" (none), "address,undefined" or "thread". Applied to every target.
set(FORMATV2_SANITIZE "" CACHE STRING "Sanitizers to build with")
if(FORMATV2_SANITIZE)
  add_compile_options(-fsanitize=${FORMATV2_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${FORMATV2_SANITIZE})
  if(FORMATV2_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
endif()
