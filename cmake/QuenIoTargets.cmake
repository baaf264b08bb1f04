# How the targets of this project are built.

include_guard()

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
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE -Wno-unknown-warning-option)
  else()
    # A unique symbol stays global whatever an export list says. And g++ 12 sees overlaps within
    # std::string where there are none.
    target_compile_options(${target} PRIVATE -fno-gnu-unique -Wno-restrict)
  endif()
endfunction()

# A static library of one relocatable object in which only the entry points are still global: what
# the shared library does with its export list. Groups are dissolved first, or a program that holds
# the same inline function would discard ours.
function(quen_io_add_static_library target objects)
  find_program(QUEN_IO_GNU_LD NAMES ld.bfd ld REQUIRED)  # no other linker dissolves groups
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}.o)
  add_custom_command(
    OUTPUT ${object}
    COMMAND ${QUEN_IO_GNU_LD} -r --force-group-allocation -o ${object}.all
            $<TARGET_OBJECTS:${objects}>
    COMMAND ${CMAKE_OBJCOPY} --wildcard
            --keep-global-symbol=quen_io_*
            --keep-global-symbol=quen_data_*
            --keep-global-symbol=__quen_propget_quen_io_*
            --keep-global-symbol=_Z32Quen_isUnsafeRecursiveDeletePathPKc
            ${object}.all ${object}
    DEPENDS ${objects} $<TARGET_OBJECTS:${objects}>
    COMMAND_EXPAND_LISTS VERBATIM)
  set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
  add_library(${target} STATIC ${object})
  add_library(quen::io_static ALIAS ${target})
  set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX EXPORT_NAME io_static)
  target_include_directories(${target}
    INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/runtime/include>)
endfunction()
