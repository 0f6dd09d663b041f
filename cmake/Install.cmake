# Installs the library, its public headers, a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

set(bmtree_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/bmtree)

install(TARGETS bitmap EXPORT bmtreeTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/bmtree)
install(EXPORT bmtreeTargets NAMESPACE bmtree:: DESTINATION ${bmtree_package_dir})

configure_package_config_file(cmake/bmtreeConfig.cmake.in ${PROJECT_BINARY_DIR}/bmtreeConfig.cmake
  INSTALL_DESTINATION ${bmtree_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/bmtreeConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/bmtreeConfig.cmake
  ${PROJECT_BINARY_DIR}/bmtreeConfigVersion.cmake
  DESTINATION ${bmtree_package_dir})

# Directories may be given absolute (as packagers do); pkg-config must then not prefix them.
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE bmtree_pc_libdir)
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_INCLUDEDIR BASE_DIRECTORY "\${prefix}"
  OUTPUT_VARIABLE bmtree_pc_includedir)
configure_file(cmake/bmtree.pc.in ${PROJECT_BINARY_DIR}/bmtree.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/bmtree.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
