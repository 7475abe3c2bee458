# cmake --install: headers, libraries, the CMake package and the pkg-config file `vorna_wfta`. None of them holds an
# absolute path, so the installed tree can be moved. The target `package` makes the Debian package of it.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)
set(include_dir ${CMAKE_INSTALL_INCLUDEDIR}/vorna_wfta)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vorna_wfta)

foreach(header IN LISTS public_headers)
  cmake_path(GET header PARENT_PATH directory)
  install(FILES ${header} DESTINATION ${include_dir}/${directory})
endforeach()

# install_component(component target namespace)
function(install_component component target namespace)
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${component})
  install(TARGETS ${target} EXPORT ${component} INCLUDES DESTINATION ${include_dir})
  install(EXPORT ${component} FILE ${component}.cmake NAMESPACE ${namespace}:: DESTINATION ${package_dir})
endfunction()

install_component(wfta vorna_wfta vorna)
set(pkg_config_libs -lvorna_wfta)
if(VORNA_WFTA_BUNDLED_WRITER)
  install_component(tessjit tessjit tessjit)
  if(NOT BUILD_SHARED_LIBS)
    string(APPEND pkg_config_libs " -ltessjit")
  endif()
endif()

set(built_package_dir ${PROJECT_BINARY_DIR}/cmake)
configure_package_config_file(cmake/vorna_wfta-config.cmake.in ${built_package_dir}/vorna_wfta-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
# Until 1.0 a minor version may change the interface.
write_basic_package_version_file(${built_package_dir}/vorna_wfta-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${built_package_dir}/vorna_wfta-config.cmake ${built_package_dir}/vorna_wfta-config-version.cmake
  DESTINATION ${package_dir})

file(RELATIVE_PATH prefix_from_pkg_config /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/vorna_wfta.pc.in ${built_package_dir}/vorna_wfta.pc @ONLY)
install(FILES ${built_package_dir}/vorna_wfta.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The vorna_wfta developers <vorna-wfta@users.noreply.github.com>")
set(CPACK_PACKAGE_DESCRIPTION "Places generated AArch64 machine-code kernels in one executable
mapping, registers them by name, links them to each other and to their
constants, and publishes their entry addresses. Contains the headers,
the static library, and the files for CMake and pkg-config.")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "finaliser of generated machine-code kernels")
set(CPACK_DEBIAN_PACKAGE_NAME libvorna-wfta-dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libstdc++-12-dev | libstdc++-dev")
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
set(debian_documents ${PROJECT_BINARY_DIR}/debian-documents)
configure_file(cmake/debian/copyright ${debian_documents}/copyright COPYONLY)
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/cmake/debian/changelog
  OUTPUT_FILE ${debian_documents}/changelog.gz)
set(CPACK_INSTALLED_DIRECTORIES ${debian_documents} usr/share/doc/libvorna-wfta-dev)
include(CPack)
