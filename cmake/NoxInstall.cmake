# Installs the library, its headers and what lets other projects find it: a CMake package and a
# pkg-config file, both relocatable.
include(CMakePackageConfigHelpers)

# What is of no other component is for those who build programs.
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME libnox-dev)

install(TARGETS nox EXPORT noxTargets
  LIBRARY COMPONENT libnox1 NAMELINK_COMPONENT libnox-dev
  RUNTIME COMPONENT libnox1)
foreach(header ${NOX_PUBLIC_HEADERS})
  cmake_path(GET header PARENT_PATH folder)
  install(FILES ${PROJECT_SOURCE_DIR}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/generated/nox/config.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nox)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nox)
install(EXPORT noxTargets NAMESPACE nox:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/noxConfig.cmake.in
  ${PROJECT_BINARY_DIR}/noxConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/noxConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/noxConfig.cmake
  ${PROJECT_BINARY_DIR}/noxConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/FindACE.cmake
  DESTINATION ${package_dir})

# nox.pc finds its prefix from where it lies.
file(RELATIVE_PATH NOX_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" NOX_PC_PREFIX ${NOX_PC_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/nox.pc.in ${PROJECT_BINARY_DIR}/nox.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/nox.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
