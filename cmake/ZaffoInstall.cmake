# What `cmake --install` lays down: the libraries, the public headers, CMake package files and one
# pkg-config file for each library. The application and its man page install from app/.
include(CMakePackageConfigHelpers)

set(zaffo_libraries ZaffoPlatform ZaffoUtils ZaffoPlayback ZaffoWindow)

install(TARGETS ${zaffo_libraries} EXPORT ZaffoPlayback
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

install(CODE "
  set(SOURCE \"${PROJECT_SOURCE_DIR}/src\")
  set(DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_INCLUDEDIR}/ZaffoPlayback\")
  set(ROOTS ZaffoPlayback.h platform/window/Window.h)
  include(\"${CMAKE_CURRENT_LIST_DIR}/InstallHeaders.cmake\")")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZaffoPlayback)
install(EXPORT ZaffoPlayback NAMESPACE ZaffoPlayback:: FILE ZaffoPlaybackTargets.cmake
        DESTINATION ${package_dir})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/ZaffoPlaybackConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/ZaffoPlaybackConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZaffoPlaybackConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZaffoPlaybackConfig.cmake
              ${PROJECT_BINARY_DIR}/ZaffoPlaybackConfigVersion.cmake
        DESTINATION ${package_dir})

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

# zaffo_pkg_config(LIBRARY FILE DESCRIPTION [REQUIRES file…])
# The prefix is found from the file's own place, so that an installed tree can be moved.
function(zaffo_pkg_config library file description)
  cmake_parse_arguments(ARG "" "" "REQUIRES" ${ARGN})
  list(JOIN ARG_REQUIRES ", " requires)
  file(RELATIVE_PATH up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/zaffo.pc.in ${PROJECT_BINARY_DIR}/${file}.pc
                 @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${file}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

zaffo_pkg_config(ZaffoPlatform zaffo-platform "The media frameworks under ZaffoPlayback")
zaffo_pkg_config(ZaffoUtils zaffo-utils "Videos, item loaders and cancel commands"
                 REQUIRES "zaffo-platform = ${PROJECT_VERSION}")
zaffo_pkg_config(ZaffoPlayback zaffo-playback "${PROJECT_DESCRIPTION}"
                 REQUIRES "zaffo-utils = ${PROJECT_VERSION}")
zaffo_pkg_config(ZaffoWindow zaffo-window "A window that shows a view tree"
                 REQUIRES "zaffo-platform = ${PROJECT_VERSION}")
