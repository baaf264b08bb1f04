# A software bill of materials (SPDX 2.3) of what is installed, written at the end of a build and installed
# with the development files.

find_package(Python3 REQUIRED COMPONENTS Interpreter)

set(products quen_io quen_io_static quen_io_checked quen_io_checked_static
  quen_runtime_parts quen_small_runtime quen_io_conformance_kit)
set(source_folders src runtime conformance)
if(QUEN_IO_DRIVER)
  list(APPEND products quen-io)
  list(APPEND source_folders driver)
endif()
list(TRANSFORM source_folders REPLACE "(.+)" "\\1/*" OUTPUT_VARIABLE source_patterns)
file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${source_patterns})
list(TRANSFORM products REPLACE "(.+)" "$<TARGET_FILE:\\1>" OUTPUT_VARIABLE product_files)

set(sbom ${CMAKE_CURRENT_BINARY_DIR}/quen_io.spdx.json)
add_custom_command(
  OUTPUT ${sbom}
  COMMAND Python3::Interpreter -B ${CMAKE_CURRENT_SOURCE_DIR}/cmake/sbom.py
          --version ${PROJECT_VERSION} --compiler ${CMAKE_CXX_COMPILER}
          --sources ${source_folders} --products ${product_files} --output ${sbom}
  DEPENDS cmake/sbom.py ${sources} ${products}
  VERBATIM)
add_custom_target(quen_io_sbom ALL DEPENDS ${sbom})
install(FILES ${sbom} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT Development)
