# The checked libraries: the module's own object files, linked a second time between wrappers of the
# entry points and operations that look at each call before they pass it on to the host's. Neither the
# module nor the host is compiled again.

include_guard()

# Makes one relocatable object of the object library `module` in two steps (ld -r, objcopy(1)). First the
# module is linked with the checking operations, which its calls then reach; its entry points get other
# names, and all other symbols become local. Then the wrappers are added, and the calls of the host's
# operations: their names are undefined again in this step, so the program's definitions are used.
function(quen_io_add_checked_object object module)
  set(inner ${object}.module)
  quen_io_keep_entry_points(names)
  add_custom_command(
    OUTPUT ${object}
    COMMAND ${QUEN_IO_LINK_OBJECTS} -o ${inner}.all
            $<TARGET_OBJECTS:${module}> $<TARGET_OBJECTS:quen_io_checked_operations>
    COMMAND ${CMAKE_OBJCOPY} --redefine-syms=${QUEN_IO_CHECKED_RENAMES} ${inner}.all ${inner}.renamed
    COMMAND ${CMAKE_OBJCOPY} --wildcard --keep-global-symbol=module_* ${inner}.renamed ${inner}
    COMMAND ${QUEN_IO_LINK_OBJECTS} -o ${object}.all
            ${inner} $<TARGET_OBJECTS:quen_io_checked_wrappers>
    COMMAND ${CMAKE_OBJCOPY} --wildcard ${names} ${object}.all ${object}
    DEPENDS ${module} $<TARGET_OBJECTS:${module}>
            quen_io_checked_operations $<TARGET_OBJECTS:quen_io_checked_operations>
            quen_io_checked_wrappers $<TARGET_OBJECTS:quen_io_checked_wrappers>
            ${QUEN_IO_CHECKED_RENAMES}
    COMMAND_EXPAND_LISTS VERBATIM)
  set_source_files_properties(${object} PROPERTIES EXTERNAL_OBJECT ON GENERATED ON)
endfunction()

# A shared library of such an object, with the exports of the module.
function(quen_io_add_checked_library target object)
  add_library(${target} SHARED ${object})
  set_target_properties(${target} PROPERTIES
    LINKER_LANGUAGE CXX
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/quen_io.exports)
  target_link_options(${target} PRIVATE
    -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/quen_io.exports)
  target_include_directories(${target}
    INTERFACE $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/runtime/include>)
endfunction()
