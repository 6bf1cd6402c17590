# Installation: headers, the shared libraries with their SONAMEs, a CMake
# package (find_package(vyrax) gives vyrax::vyrax, vyrax::qentypes and
# vyrax::ordonotes) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS ordonotes qentypes vyrax
  EXPORT vyraxTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Modules loaded by name at run time.
install(TARGETS vyr_ver LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vyrax/modules)
if(TARGET vyr_cfs)
  install(TARGETS vyr_cfs LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
endif()
# Plug-ins go to the plug-in folder beside the library, where it finds them.
set(VYRAX_PLUGIN_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/vyrax/plugins)
install(TARGETS vyr_sample_tiff vyr_sample_png LIBRARY DESTINATION ${VYRAX_PLUGIN_INSTALL_DIR})

install(DIRECTORY ${PROJECT_SOURCE_DIR}/qen/include/qen DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/ordonotes/include/ordonotes DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Only the public headers of the library: all of vyrax/include/vyrax.
file(GLOB VYRAX_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/vyrax/include/vyrax/*.h)
install(FILES ${VYRAX_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vyrax)

set(VYRAX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vyrax)
install(EXPORT vyraxTargets NAMESPACE vyrax:: DESTINATION ${VYRAX_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vyraxConfig.cmake.in
  ${CMAKE_BINARY_DIR}/vyraxConfig.cmake INSTALL_DESTINATION ${VYRAX_CMAKE_DIR}
  PATH_VARS VYRAX_PLUGIN_INSTALL_DIR)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/vyraxConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/vyraxConfig.cmake ${CMAKE_BINARY_DIR}/vyraxConfigVersion.cmake
  DESTINATION ${VYRAX_CMAKE_DIR})

# The way up from the pkg-config folder to the prefix, as deep as the
# library folder is (lib, lib64, lib/x86_64-linux-gnu).
file(RELATIVE_PATH PC_UP "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
set(PC_PREFIX_FROM_PCFILEDIR "\${pcfiledir}/${PC_UP}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/vyrax.pc.in ${CMAKE_BINARY_DIR}/vyrax.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/vyrax.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
