# Debian packages: the shared library, the checked one, the development files and the driver. Configure with the
# preset "debian", which sets the prefix to /usr.

set(runtime_package libquen-io${PROJECT_VERSION_MAJOR})
set(checked_package libquen-io-checked${PROJECT_VERSION_MAJOR})

# The copyright and changelog of each package (Debian Policy, sections 12.5 and 12.7).
string(TIMESTAMP release_date "%a, %d %b %Y %H:%M:%S +0000" UTC)  # respects SOURCE_DATE_EPOCH
configure_file(cmake/debian/changelog.in changelog @ONLY)
add_custom_command(
  OUTPUT changelog.gz
  COMMAND gzip --best --no-name --keep --force changelog
  DEPENDS ${CMAKE_CURRENT_BINARY_DIR}/changelog)
add_custom_target(quen_io_package_documents ALL DEPENDS changelog.gz)
function(quen_io_install_package_documents component package)
  install(FILES cmake/debian/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endfunction()
quen_io_install_package_documents(Runtime ${runtime_package})
quen_io_install_package_documents(Checked ${checked_package})
quen_io_install_package_documents(Development libquen-io-dev)
quen_io_install_package_documents(Driver quen-io)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quen-io)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # otherwise prepended to each package's own summary
set(CPACK_PACKAGE_CONTACT "Quen IO developers <quen-io@example.org>")
set(CPACK_COMPONENTS_ALL Runtime Checked Development Driver)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
  ${CMAKE_CURRENT_BINARY_DIR}/src ${CMAKE_CURRENT_BINARY_DIR}/runtime/checked)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/drop_ldconfig_scripts.cmake)
set(CPACK_DEBIAN_PACKAGE_SOURCE quen-io)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "file-system and file-I/O library of Quen, native half
The functions behind the paths, files and streams of the Quen language: path
normalization, file status queries, creating, renaming and removing files and
folders, reading and writing whole files, writers that stay open, and strict
TOML input.
.
They call 20 runtime operations, which the program has to define.")

set(CPACK_DEBIAN_CHECKED_PACKAGE_NAME ${checked_package})
set(CPACK_DEBIAN_CHECKED_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_CHECKED_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_DEBIAN_CHECKED_DESCRIPTION "file-system and file-I/O library of Quen, checking the runtime
The same functions as in ${runtime_package}, between checks of every call in both
directions, for authors of a runtime: each mistake of a runtime operation that
can be seen is reported while a program does its ordinary work.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquen-io-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${runtime_package} (= ${PROJECT_VERSION}), ${checked_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "file-system and file-I/O library of Quen, development
The headers of the functions and of the runtime operations that they call, the
static library, a small runtime for programs that have none, and the CMake and
pkg-config files.")

set(CPACK_DEBIAN_DRIVER_PACKAGE_NAME quen-io)
set(CPACK_DEBIAN_DRIVER_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_DRIVER_PACKAGE_DEPENDS "${runtime_package} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DRIVER_PACKAGE_RECOMMENDS strace)  # for call --system-calls
set(CPACK_DEBIAN_DRIVER_DESCRIPTION "file-system and file-I/O library of Quen, command line
Calls any function of the library, once or in an interactive shell, writes an
index of a folder tree, and lists files that are not valid UTF-8.")

include(CPack)
