# The runner's placed JSON scanner, a library of its own: the runner links it, and so do the fuzz
# target that reads texts with it and with cJSON and the replay of that target's inputs, in builds
# without the runner too. The first include defines it.
if(NOT TARGET formatv2_preview_json)
  add_library(formatv2_preview_json STATIC ${CMAKE_CURRENT_LIST_DIR}/json_scan.cpp)
  # The scanner asks cJSON how it reads numbers.
  target_link_libraries(formatv2_preview_json PUBLIC formatv2_contract ${CJSON_LIBRARIES})
  target_include_directories(formatv2_preview_json PUBLIC ${CJSON_INCLUDE_DIRS})
  formatv2_set_warnings(formatv2_preview_json)
endif()
