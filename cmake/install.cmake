# cmake --install: headers, libraries, the CMake package and the pkg-config files of the same names. None of them holds an absolute
# path, so the installed tree can be moved. The target `package` makes the Debian packages of it.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME library)
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

install_component(wfta_check vorna_wfta_check vorna)
if(VORNA_WFTA_ANALYSIS)
  install_component(wfta_analysis vorna_wfta_analysis vorna)
endif()

set(built_package_dir ${PROJECT_BINARY_DIR}/cmake)
configure_package_config_file(cmake/vorna_wfta-config.cmake.in ${built_package_dir}/vorna_wfta-config.cmake
  INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
# Until 1.0 a minor version may change the interface.
write_basic_package_version_file(${built_package_dir}/vorna_wfta-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${built_package_dir}/vorna_wfta-config.cmake ${built_package_dir}/vorna_wfta-config-version.cmake
  DESTINATION ${package_dir})

file(RELATIVE_PATH prefix_from_pkg_config /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
# install_pkg_config(name description libs)
function(install_pkg_config name description libs)
  configure_file(cmake/vorna_wfta.pc.in ${built_package_dir}/${name}.pc @ONLY)
  install(FILES ${built_package_dir}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()

install_pkg_config(vorna_wfta "${PROJECT_DESCRIPTION}" "${pkg_config_libs}")
install_pkg_config(vorna_wfta_check "Checks kernels before they are finalised" -lvorna_wfta_check)
if(VORNA_WFTA_ANALYSIS)
  install_pkg_config(vorna_wfta_analysis "Checks kernels and their instructions before they are finalised"
                     "-lvorna_wfta_analysis -lvorna_wfta_check")
endif()

if(VORNA_WFTA_WORKBENCH)
  install(TARGETS vorna-kernels COMPONENT workbench)
  install(FILES ${PROJECT_BINARY_DIR}/workbench/vorna-kernels.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
    COMPONENT workbench)
  install(FILES workbench/cli/completion.bash RENAME vorna-kernels
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT workbench)
endif()

# A package of its own for each group of components.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_CONTACT "The vorna_wfta developers <vorna-wfta@users.noreply.github.com>")
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/cmake/debian/changelog
  OUTPUT_FILE ${built_package_dir}/changelog.gz)

# debian_package(name component section summary description): the component, with Debian's documents, as a package.
function(debian_package name component section summary description)
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${built_package_dir}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component}_documents EXCLUDE_FROM_ALL)
  string(TOUPPER ${component} COMPONENT)
  foreach(part IN ITEMS ${COMPONENT} ${COMPONENT}_DOCUMENTS)
    set(CPACK_COMPONENT_${part}_GROUP ${name} PARENT_SCOPE)
  endforeach()
  string(TOUPPER ${name} NAME)
  set(CPACK_DEBIAN_${NAME}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${NAME}_FILE_NAME DEB-DEFAULT PARENT_SCOPE)
  set(CPACK_DEBIAN_${NAME}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_COMPONENT_${NAME}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} ${component}_documents PARENT_SCOPE)
endfunction()

debian_package(libvorna-wfta-dev library libdevel "finaliser of generated machine-code kernels"
  "Places generated AArch64 machine-code kernels in one executable
mapping, registers them by name, links them to each other and to their
constants, and publishes their entry addresses. Contains the headers,
the static libraries, and the files for CMake and pkg-config.")
set(CPACK_DEBIAN_LIBVORNA-WFTA-DEV_PACKAGE_DEPENDS "libstdc++-12-dev | libstdc++-dev")
if(VORNA_WFTA_WORKBENCH)
  debian_package(vorna-kernels workbench devel "workbench for generated machine-code kernels"
    "Reads the dumps of generated AArch64 kernels: checks and lists them,
links them to an image for debuggers and profilers, explains why a
process was ended, compares kernels, and shows where their time goes.")
  set(CPACK_DEBIAN_VORNA-KERNELS_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
