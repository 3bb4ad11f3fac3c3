# Install rules and packages. The install tree is a root file system, so one set of rules
# serves `cmake --install --prefix DIR` (a staging root) and CPack (prefix "/"):
#
#   component  installed by default  what
#   module     yes                   the module and its default configuration where the host
#                                    looks for them, the configuration reference
#   preview    no                    the preview runner, with a private copy of the stand-in
#                                    host that only the runner finds
#   standin    no                    the stand-in host library and the host's headers, for
#                                    building against the stand-in on another machine
#
# The device has its own libalgo.so; nothing installed by default, and nothing on the default
# library path of any package, may shadow it.

set(FORMATV2_DEVICE_DIR mnt/app/zrs_so/so/formatv2)
set(FORMATV2_DOC_DIR usr/share/doc/formatv2)
set(FORMATV2_PREVIEW_LIB_DIR usr/lib/formatv2-preview)
set(FORMATV2_PACKAGE_MAINTAINER "formatv2 developers <formatv2@invalid>"
    CACHE STRING "Maintainer written into the .deb packages")

install(TARGETS formatv2 LIBRARY DESTINATION ${FORMATV2_DEVICE_DIR} COMPONENT module)
install(FILES ${PROJECT_SOURCE_DIR}/config/default/algo_private.json
        DESTINATION ${FORMATV2_DEVICE_DIR}/json COMPONENT module)
install(FILES ${PROJECT_SOURCE_DIR}/docs/configuration.md
              ${PROJECT_SOURCE_DIR}/docs/algo_private.schema.json
        DESTINATION ${FORMATV2_DOC_DIR} COMPONENT module)

install(TARGETS algo LIBRARY DESTINATION usr/lib COMPONENT standin EXCLUDE_FROM_ALL)
# The host's declarations and the stand-in's controls, from their include roots: host/*.h and
# host/standin/standin.h below usr/include/formatv2.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/include/ ${PROJECT_SOURCE_DIR}/host/standin/include/
        DESTINATION usr/include/formatv2 COMPONENT standin EXCLUDE_FROM_ALL
        FILES_MATCHING PATTERN "*.h")

if(TARGET formatv2_preview)
  # The runner drives the module through controls only the stand-in has, so it must get the
  # stand-in even where the device's environment points LD_LIBRARY_PATH at the real host
  # library: an old-style RPATH is searched before LD_LIBRARY_PATH, a RUNPATH after it.
  set_target_properties(formatv2_preview PROPERTIES
                        INSTALL_RPATH "\$ORIGIN/../lib/formatv2-preview")
  target_link_options(formatv2_preview PRIVATE -Wl,--disable-new-dtags)
  install(TARGETS formatv2_preview RUNTIME DESTINATION usr/bin COMPONENT preview EXCLUDE_FROM_ALL)
  install(TARGETS algo LIBRARY DESTINATION ${FORMATV2_PREVIEW_LIB_DIR}
          COMPONENT preview EXCLUDE_FROM_ALL)
endif()

# Debian's name for the target architecture, also used in the archives' names.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(FORMATV2_DEB_ARCH arm64)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(FORMATV2_DEB_ARCH armhf)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(FORMATV2_DEB_ARCH amd64)
else()
  set(FORMATV2_DEB_ARCH ${CMAKE_SYSTEM_PROCESSOR})
endif()

set(CPACK_PACKAGE_NAME formatv2)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${FORMATV2_PACKAGE_MAINTAINER}")
set(CPACK_GENERATOR TGZ DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL module preview)
set(CPACK_COMPONENT_PREVIEW_DEPENDS module)

# One archive per component, unpacked at the device's root: no top-level folder.
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_COMPONENT_INCLUDE_TOPLEVEL_DIRECTORY OFF)
set(CPACK_ARCHIVE_MODULE_FILE_NAME formatv2-${PROJECT_VERSION}-${FORMATV2_DEB_ARCH})
set(CPACK_ARCHIVE_PREVIEW_FILE_NAME formatv2-preview-${PROJECT_VERSION}-${FORMATV2_DEB_ARCH})

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${FORMATV2_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_MODULE_PACKAGE_NAME formatv2)
set(CPACK_DEBIAN_PREVIEW_PACKAGE_NAME formatv2-preview)
string(CONCAT CPACK_DEBIAN_MODULE_DESCRIPTION
       "output-formatting module for the vision-processing host\n"
       "libformatv2.so and its default algo_private.json in /mnt/app/zrs_so/so/formatv2, where\n"
       "the host loads the module from, and the configuration reference. The host library\n"
       "libalgo.so comes with the host, not with this package.")
string(CONCAT CPACK_DEBIAN_PREVIEW_DESCRIPTION
       "preview runner for the formatv2 module\n"
       "formatv2_preview checks a configuration and runs scenarios through the module without\n"
       "the host. It carries a stand-in of the host library in /usr/lib/formatv2-preview,\n"
       "which only the runner finds.")
# Dependencies come from dpkg-shlibdeps; the host's libalgo.so belongs to no package and has
# no version in its name, so dpkg-shlibdeps only warns that it is not found.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

include(CPack)
