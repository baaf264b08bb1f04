# Debian packages of what is installed: the shared library, what it takes to build against it, and
# the driver. To be configured as the preset "debian" does, with /usr as the prefix.

set(runtime_package libquen-io${PROJECT_VERSION_MAJOR})

# The papers that each package has to bring.
string(TIMESTAMP release_date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # heeds SOURCE_DATE_EPOCH
configure_file(cmake/debian/changelog.in changelog @ONLY)
add_custom_command(
  OUTPUT changelog.gz
  COMMAND gzip --best --no-name --keep --force changelog
  DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog)
add_custom_target(quen_io_papers ALL DEPENDS changelog.gz)
function(quen_io_install_papers component package)
  install(FILES cmake/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()
quen_io_install_papers(Runtime ${runtime_package})
quen_io_install_papers(Development libquen-io-dev)
quen_io_install_papers(Driver quen-io)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quen-io)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # would stand before that of each package
set(CPACK_PACKAGE_CONTACT "Quen IO developers <quen-io@example.org>")
set(CPACK_COMPONENTS_ALL Runtime Development Driver)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_CURRENT_BINARY_DIR}/src)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/drop_ldconfig_scripts.cmake)
set(CPACK_DEBIAN_PACKAGE_SOURCE quen-io)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "file-system and file-I/O library of Quen, native half
The functions behind the paths, files and streams of the Quen language: normal
forms of paths, questions about entries and changes to them, reading and
writing whole files, writers that stay open, and strict TOML input.
.
They ask 20 operations of a runtime, which the program has to supply.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquen-io-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "file-system and file-I/O library of Quen, development
The headers of the functions and of the operations that they ask of a runtime,
the static library, a small runtime for programs that have none, and what
CMake and pkg-config have to know.")

set(CPACK_DEBIAN_DRIVER_PACKAGE_NAME quen-io)
set(CPACK_DEBIAN_DRIVER_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_DRIVER_PACKAGE_DEPENDS "${runtime_package} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DRIVER_DESCRIPTION "file-system and file-I/O library of Quen, at a terminal
Calls each function of the library, one at a time or in a shell, writes what is
in a folder tree to an index, and tells which files are not UTF-8.")

include(CPack)
