# SPDX-License-Identifier: Apache-2.0

# What `cmake --install` lays down: the libraries, the public headers, CMake package files and one
# pkg-config file for each library. The application and its man page install from app/.
include(CMakePackageConfigHelpers)

set(zaffo_libraries ZaffoPlatform ZaffoUtils ZaffoPlayback ZaffoWindow)

install(TARGETS ${zaffo_libraries} EXPORT ZaffoPlayback
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})

install(CODE "
  set(SOURCE \"${PROJECT_SOURCE_DIR}/src\")
  set(SCRATCH \"${PROJECT_BINARY_DIR}/installed-headers\")
  set(DESTINATION \"${CMAKE_INSTALL_INCLUDEDIR}/ZaffoPlayback\")
  if(NOT IS_ABSOLUTE \"\${DESTINATION}\")
    string(PREPEND DESTINATION \"\${CMAKE_INSTALL_PREFIX}/\")
  endif()
  set(ROOTS ZaffoPlayback.h zaffo.h platform/window/Window.h)
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

# zaffo_pkg_config(LIBRARY FILE DESCRIPTION [REQUIRES file…] [PACKAGES package…] [LIBS option…]
#                  [COMPONENT name])
# The prefix is found from the file's own place, so that an installed tree can be moved, unless
# folders were named absolutely.
function(zaffo_pkg_config library file description)
  set(libs "")
  set(libs_private "")
  cmake_parse_arguments(ARG "" "COMPONENT" "REQUIRES;PACKAGES;LIBS" ${ARGN})
  if(NOT ARG_COMPONENT)
    set(ARG_COMPONENT ${CMAKE_INSTALL_DEFAULT_COMPONENT_NAME})
  endif()
  # What static libraries are linked with is everybody's business; who links shared ones needs no
  # package of what is underneath, not even to be known to pkg-config.
  if(BUILD_SHARED_LIBS)
    set(libs_private ${ARG_LIBS})
  else()
    list(APPEND ARG_REQUIRES ${ARG_PACKAGES})
    set(libs ${ARG_LIBS})
  endif()
  list(JOIN libs " " libs)
  list(JOIN libs_private " " libs_private)
  list(JOIN ARG_REQUIRES ", " requires)
  file(RELATIVE_PATH up ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  foreach(folder LIBDIR INCLUDEDIR)
    set(${folder} ${CMAKE_INSTALL_${folder}})
    if(NOT IS_ABSOLUTE ${${folder}})
      string(PREPEND ${folder} "\${prefix}/")
    endif()
  endforeach()
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/zaffo.pc.in ${PROJECT_BINARY_DIR}/${file}.pc
                 @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${file}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT ${ARG_COMPONENT})
endfunction()

zaffo_pkg_config(ZaffoPlatform zaffo-platform "The media frameworks under ZaffoPlayback"
                 PACKAGES libavformat libavcodec libswresample libswscale libavutil libcurl libpng
                 LIBS -lcubeb -pthread -lstdc++)
zaffo_pkg_config(ZaffoUtils zaffo-utils "Videos, item loaders and cancel commands"
                 REQUIRES "zaffo-platform = ${PROJECT_VERSION}" LIBS -lstdc++)
zaffo_pkg_config(ZaffoPlayback zaffo-playback "${PROJECT_DESCRIPTION}"
                 REQUIRES "zaffo-utils = ${PROJECT_VERSION}")
zaffo_pkg_config(ZaffoWindow zaffo-window "A window that shows a view tree"
                 REQUIRES "zaffo-platform = ${PROJECT_VERSION}"
                 PACKAGES sdl2 LIBS -pthread -lstdc++)

# The component `gtk`, which stands alone: who asks for it needs GTK's development files as well.
if(TARGET ZaffoGtk)
  install(TARGETS ZaffoGtk EXPORT ZaffoPlaybackGtk
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT gtk
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT gtk)
  install(FILES ${PROJECT_SOURCE_DIR}/gtk/zaffo-gtk.h
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZaffoGtk COMPONENT gtk)
  install(EXPORT ZaffoPlaybackGtk NAMESPACE ZaffoPlayback:: FILE ZaffoPlaybackGtkTargets.cmake
          DESTINATION ${package_dir} COMPONENT gtk)
  zaffo_pkg_config(ZaffoGtk zaffo-gtk "Clips as widgets of GTK 4" COMPONENT gtk
                   REQUIRES "zaffo-playback = ${PROJECT_VERSION}" "gtk4 >= 4.8")
endif()

# The component `qt` likewise: the library, and the QML module where there is one (qt/).
if(TARGET ZaffoQt)
  install(TARGETS ZaffoQt EXPORT ZaffoPlaybackQt
          LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT qt
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT qt)
  install(FILES ${PROJECT_SOURCE_DIR}/qt/ZaffoClip.h ${PROJECT_SOURCE_DIR}/qt/ZaffoVideoWidget.h
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZaffoQt COMPONENT qt)
  install(EXPORT ZaffoPlaybackQt NAMESPACE ZaffoPlayback:: FILE ZaffoPlaybackQtTargets.cmake
          DESTINATION ${package_dir} COMPONENT qt)
  zaffo_pkg_config(ZaffoQt zaffo-qt "Clips for Qt 6, as widgets and in Qt Quick" COMPONENT qt
                   REQUIRES "zaffo-playback = ${PROJECT_VERSION}" "Qt6Widgets >= 6.4"
                            "Qt6Multimedia >= 6.4")
endif()

add_custom_target(uninstall
  COMMAND ${CMAKE_COMMAND} -DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt
          -P ${CMAKE_CURRENT_LIST_DIR}/Uninstall.cmake VERBATIM)
