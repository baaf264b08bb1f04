# Functions that configure the targets of this project.

include_guard()

# Links object files into one, with COMDAT groups dissolved, which only GNU ld does. With g++ -m32, the
# compiler's target is not the one that the linker was built for.
find_program(QUEN_IO_GNU_LD NAMES ld.bfd ld REQUIRED)
set(QUEN_IO_LINK_OBJECTS ${QUEN_IO_GNU_LD} -r --force-group-allocation)
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "86")
  list(APPEND QUEN_IO_LINK_OBJECTS -m elf_i386)
endif()

# C++20, hidden symbols, the project's include folders, strict warnings as errors.
function(quen_io_configure target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF
    COMPILE_WARNING_AS_ERROR ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${target}
    PRIVATE ${PROJECT_SOURCE_DIR}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/runtime/include>)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic
    -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wuseless-cast
    -Wmissing-declarations -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-align -Wformat=2 -Wimplicit-fallthrough -Wextra-semi)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)  # they would ask for casts that are useless on 64 bits
    target_compile_options(${target} PRIVATE -Wno-conversion -Wno-sign-conversion -Wno-useless-cast)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE -Wno-unknown-warning-option)
  else()
    # STB_GNU_UNIQUE symbols stay global in spite of a version script. -Wrestrict gives false
    # positives for std::string in g++ 12 (GCC bug 105651).
    target_compile_options(${target} PRIVATE -fno-gnu-unique -Wno-restrict)
  endif()
endfunction()

# Sets the variable to the options with which objcopy keeps the entry points global, and nothing else.
function(quen_io_keep_entry_points variable)
  set(exports ${PROJECT_SOURCE_DIR}/cmake/quen_io.exports)
  file(READ ${exports} names)
  string(REPLACE ";" " " names "${names}")  # ";" separates list elements
  string(REGEX MATCHALL "(__)?quen_[a-z_]+\\*|_Z[A-Za-z0-9_]+" names "${names}")
  list(TRANSFORM names PREPEND --keep-global-symbol=)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${exports})
  set(${variable} ${names} PARENT_SCOPE)
endfunction()

# A static library of one relocatable object whose only global symbols are the entry points, as the
# version script does for the shared library. COMDAT groups are dissolved first (ld
# --force-group-allocation); otherwise the linker could discard our copy of an inline function, whose
# symbol is local by then, in favour of the program's.
function(quen_io_add_static_library target objects)
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}.o)
  quen_io_keep_entry_points(names)
  add_custom_command(
    OUTPUT ${object}
    COMMAND ${QUEN_IO_LINK_OBJECTS} -o ${object}.all
            $<TARGET_OBJECTS:${objects}>
    COMMAND ${CMAKE_OBJCOPY} --wildcard
            ${names}
            ${object}.all ${object}
    DEPENDS ${objects} $<TARGET_OBJECTS:${objects}>
    COMMAND_EXPAND_LISTS VERBATIM)
  quen_io_add_static_library_of_object(${target} ${object})
  add_library(quen::io_static ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME io_static)
endfunction()

function(quen_io_add_static_library_of_object target object)
  set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
  add_library(${target} STATIC ${object})
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
  target_include_directories(${target}
    INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/runtime/include>)
endfunction()
