# Install rules for four components: Runtime (the shared library), Checked (the one that checks a host),
# Development and Driver. The installed tree is relocatable: no file in it contains the prefix.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quen_io)

install(TARGETS quen_io EXPORT quen_io-targets
  LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development
  FILE_SET HEADERS COMPONENT Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS quen_io_static EXPORT quen_io-targets
  ARCHIVE COMPONENT Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The checked library, for authors of a runtime. The loader finds it under the name of the module in a
# folder of its own (LD_LIBRARY_PATH, ld.so(8)).
install(TARGETS quen_io_checked quen_io_checked_static EXPORT quen_io-targets
  LIBRARY COMPONENT Checked NAMELINK_COMPONENT Development
  ARCHIVE COMPONENT Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_BINARY_DIR}/runtime/checked/quen_io_checked
  DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Checked)
install(EXPORT quen_io-targets NAMESPACE quen:: DESTINATION ${package_dir} COMPONENT Development)

# The small runtime, for programs that have none, is a package component of its own
# (find_package(quen_io COMPONENTS small_runtime)). Its installed header is "quen/small/host.h".
install(TARGETS quen_small_runtime EXPORT quen_io-small_runtime-targets
  ARCHIVE COMPONENT Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES runtime/small/host.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quen/small COMPONENT Development)
install(EXPORT quen_io-small_runtime-targets
  NAMESPACE quen:: DESTINATION ${package_dir} COMPONENT Development)

# So are its operations that no runtime needs to write itself.
install(TARGETS quen_runtime_parts EXPORT quen_io-runtime_parts-targets
  ARCHIVE COMPONENT Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT quen_io-runtime_parts-targets
  NAMESPACE quen:: DESTINATION ${package_dir} COMPONENT Development)

# So is the conformance kit, for authors of a runtime. The template of its main program and an
# example runtime are installed as sources.
install(TARGETS quen_io_conformance_kit EXPORT quen_io-conformance_kit-targets
  ARCHIVE COMPONENT Development
  FILE_SET HEADERS COMPONENT Development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES conformance/main_template.cpp RENAME runtime_conformance.cpp
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quen_io COMPONENT Development)
install(FILES examples/toy_host.cpp
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quen_io COMPONENT Development)
install(EXPORT quen_io-conformance_kit-targets
  NAMESPACE quen:: DESTINATION ${package_dir} COMPONENT Development)

set(conformance_program ${CMAKE_INSTALL_DATADIR}/quen_io/runtime_conformance.cpp)
configure_package_config_file(cmake/quen_io-config.cmake.in quen_io-config.cmake
  INSTALL_DESTINATION ${package_dir}
  PATH_VARS conformance_program
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(quen_io-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/quen_io-config.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/quen_io-config-version.cmake
  DESTINATION ${package_dir} COMPONENT Development)

cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE pc_to_prefix)
foreach(library quen_io quen_io_checked)
  configure_file(cmake/quen_io.pc.in ${library}.pc @ONLY)
endforeach()
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/quen_io.pc
  ${CMAKE_CURRENT_BINARY_DIR}/quen_io_checked.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

if(QUEN_IO_DRIVER)
  cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR
    BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR} OUTPUT_VARIABLE bin_to_lib)
  set_target_properties(quen-io PROPERTIES INSTALL_RPATH $ORIGIN/${bin_to_lib})
  install(TARGETS quen-io COMPONENT Driver)

  get_target_property(driver_dir quen-io BINARY_DIR)
  install(FILES ${driver_dir}/quen-io.1.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Driver)
  install(FILES ${driver_dir}/quen-io.bash RENAME quen-io
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT Driver)
  install(FILES ${driver_dir}/_quen-io
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT Driver)
  install(FILES ${driver_dir}/quen-io.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT Driver)
endif()

include(QuenIoSbom)
