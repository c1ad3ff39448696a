# What is installed, and the package of it. Parts: runtime (program, modules, graphs, pictures, manual), development (libraries,
# headers, what find_package and pkg-config read) and dialogs (the module behind windows).
set(PANTIQ_CONFIG_FOLDER ${CMAKE_INSTALL_LIBDIR}/cmake/pantiq)
file(RELATIVE_PATH PANTIQ_PC_UP "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" PANTIQ_PC_UP "${PANTIQ_PC_UP}")

# Shared libraries are found from where a file lies: the folder may be moved.
if(BUILD_SHARED_LIBS)
  file(RELATIVE_PATH from_bin "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
  set(CMAKE_INSTALL_RPATH "$ORIGIN" "$ORIGIN/.." "$ORIGIN/${from_bin}")
endif()

# pq_install_room(core host kernels): installs pantiq::core, its headers and a pkg-config file that requires host and kernels.
# The room named pantiq is all of them.
function(pq_install_room room)
  set_property(GLOBAL APPEND PROPERTY PANTIQ_ROOMS ${room})
  if(BUILD_SHARED_LIBS AND NOT room STREQUAL pantiq)
    set_target_properties(pantiq_${room} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
  endif()
  install(TARGETS pantiq_${room} EXPORT pantiqTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

  set(name pantiq-${room})
  set(libs "-L\${libdir} -lpantiq_${room} -pthread")
  list(TRANSFORM ARGN PREPEND "pantiq-" OUTPUT_VARIABLE requires)
  string(JOIN ", " requires ${requires})
  if(room STREQUAL pantiq)
    set(name pantiq)
    set(libs)
  elseif(room STREQUAL host AND PANTIQ_PICTURES AND NOT BUILD_SHARED_LIBS)  # an archive does not bring what it uses
    set(requires "libpng, libjpeg")
  elseif(room STREQUAL platform AND CMAKE_DL_LIBS)
    string(APPEND libs " -l${CMAKE_DL_LIBS}")
  endif()
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc @ONLY CONTENT [[prefix=${pcfiledir}/@PANTIQ_PC_UP@
includedir=${prefix}/@CMAKE_INSTALL_INCLUDEDIR@
libdir=${prefix}/@CMAKE_INSTALL_LIBDIR@

Name: @name@
Description: @PROJECT_DESCRIPTION@ (@room@)
Version: @PROJECT_VERSION@
Requires: @requires@
Cflags: -I${includedir}
Libs: @libs@
]])
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endfunction()

# Called once, after every room.
function(pq_install_package)
  include(CMakePackageConfigHelpers)
  # The engines' modules and the vector sources keep their headers to themselves.
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/pantiq DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
    FILES_MATCHING PATTERN "*.h" PATTERN "*.def" PATTERN "platform/gst" EXCLUDE PATTERN "platform/av" EXCLUDE
    PATTERN "design/qt" EXCLUDE
    PATTERN "plugins/host" EXCLUDE PATTERN "*Vec.h" EXCLUDE PATTERN "*_simd.h" EXCLUDE)
  install(EXPORT pantiqTargets NAMESPACE pantiq:: DESTINATION ${PANTIQ_CONFIG_FOLDER} COMPONENT development)
  get_property(PANTIQ_ROOMS GLOBAL PROPERTY PANTIQ_ROOMS)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/pantiqConfig.cmake.in ${PROJECT_BINARY_DIR}/pantiqConfig.cmake
    INSTALL_DESTINATION ${PANTIQ_CONFIG_FOLDER} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/pantiqConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/pantiqConfig.cmake ${PROJECT_BINARY_DIR}/pantiqConfigVersion.cmake
    DESTINATION ${PANTIQ_CONFIG_FOLDER} COMPONENT development)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/graphs DESTINATION ${CMAKE_INSTALL_DATADIR}/pantiq COMPONENT runtime)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/images/palette ${PROJECT_SOURCE_DIR}/pantiq/design/palette
    DESTINATION ${CMAKE_INSTALL_DATADIR}/pantiq COMPONENT runtime FILES_MATCHING PATTERN "*.svg" PATTERN "*.png" PATTERN "*.bmp")
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/skeleton ${PROJECT_SOURCE_DIR}/examples/first_graph
    DESTINATION ${CMAKE_INSTALL_DATADIR}/pantiq COMPONENT development USE_SOURCE_PERMISSIONS)
  install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)

  if(NOT PROJECT_IS_TOP_LEVEL)
    return()
  endif()
  set(CPACK_GENERATOR DEB TGZ)
  set(CPACK_PACKAGE_NAME pantiq)
  set(CPACK_PACKAGE_VENDOR Pantiq)
  set(CPACK_PACKAGE_CONTACT "The developers of Pantiq <pantiq@localhost>")
  set(CPACK_STRIP_FILES ON)
  set(CPACK_COMPONENTS_ALL runtime development)  # packages pantiq and pantiq-dev
  if(TARGET pantiq_qt)
    list(APPEND CPACK_COMPONENTS_ALL dialogs)
    set(CPACK_DEBIAN_DIALOGS_PACKAGE_NAME pantiq-dialogs)
    set(CPACK_DEBIAN_DIALOGS_PACKAGE_SECTION video)
    set(CPACK_DEBIAN_DIALOGS_PACKAGE_DEPENDS "pantiq (= ${PROJECT_VERSION})")
    set(CPACK_COMPONENT_DIALOGS_DESCRIPTION "The windows of the program that builds graphs of components for real-time video.")
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "pantiq-dialogs, ")
  endif()
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME pantiq)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION video)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME pantiq-dev)
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
  set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Builds and runs graphs of components for real-time video: the program, its modules and example graphs.")
  set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "The library of components for real-time video: archives, headers, CMake and pkg-config files.")
  set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "pantiq (= ${PROJECT_VERSION})")
  if(PANTIQ_PICTURES)
    string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ", libpng-dev, libjpeg-dev")
  endif()
  find_program(PANTIQ_SHLIBDEPS dpkg-shlibdeps)
  mark_as_advanced(PANTIQ_SHLIBDEPS)
  if(PANTIQ_SHLIBDEPS)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_DIALOGS_PACKAGE_SHLIBDEPS ON)
  endif()
  if(PANTIQ_MEDIA)
    # Demuxers, decoders and encoders are found while running: no library names them.
    string(JOIN ", " CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS gstreamer1.0-plugins-base gstreamer1.0-plugins-good
      gstreamer1.0-plugins-ugly gstreamer1.0-libav)
  endif()
  string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_SUGGESTS "gstreamer1.0-x, bash-completion")
  include(CPack)
endfunction()
