# nvxcore_generate_messages(TARGET target PROTOS file.proto... [IMPORT_DIRS folder...]
#                           [EXPORT_MACRO macro EXPORT_HEADER header])
#
# Makes message classes from schema files and compiles them into the target. For folder/places.proto, below one of the
# import folders, the target and all that link it may then say
#
#   #include "folder/places.pb.h"
#
# The files may be relative to the current source folder, and so may the import folders, of which that one is the
# default. Imports are looked for in them, in their order, and then among the library's own schemas, as in
# import "nvxcore/message/schema/descriptor.proto". What a file imports and is not among PROTOS must be made by a
# target that this one links. A change of any file that is read, imported ones too, makes the classes anew.
#
# The target's property NVXCORE_MESSAGE_HEADERS is the folder that the headers lie in, for what installs them.
#
# EXPORT_MACRO is for a target that is a shared library and hides its names: the macro that makes one seen, and the
# header that defines it.
#
# When cross-compiling, NVXCORE_MESSAGEGEN names a generator that runs on the machine that builds; it may be set
# otherwise too. Without it the target nvxcore::messagegen is run.
function(nvxcore_generate_messages)
  cmake_parse_arguments(GENERATE "" "TARGET;EXPORT_MACRO;EXPORT_HEADER" "PROTOS;IMPORT_DIRS" ${ARGN})
  if(GENERATE_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "nvxcore_generate_messages: what is meant by ${GENERATE_UNPARSED_ARGUMENTS}?")
  endif()
  if(NOT TARGET "${GENERATE_TARGET}")
    message(FATAL_ERROR "nvxcore_generate_messages: TARGET must name a target, not \"${GENERATE_TARGET}\"")
  endif()
  if(NOT GENERATE_PROTOS)
    message(FATAL_ERROR "nvxcore_generate_messages: PROTOS must name one file at least")
  endif()
  if(NOT GENERATE_IMPORT_DIRS)
    set(GENERATE_IMPORT_DIRS ${CMAKE_CURRENT_SOURCE_DIR})
  endif()

  set(options)
  set(folders)
  foreach(folder ${GENERATE_IMPORT_DIRS})
    get_filename_component(folder ${folder} REALPATH BASE_DIR ${CMAKE_CURRENT_SOURCE_DIR})
    list(APPEND folders ${folder})
    list(APPEND options -I ${folder})
  endforeach()
  get_property(own GLOBAL PROPERTY NVXCORE_SCHEMA_ROOT)
  list(APPEND options -I ${own})
  if(GENERATE_EXPORT_MACRO)
    list(APPEND options --export-macro ${GENERATE_EXPORT_MACRO} --export-header ${GENERATE_EXPORT_HEADER})
  endif()

  if(NVXCORE_MESSAGEGEN)
    set(generator ${NVXCORE_MESSAGEGEN})
  elseif(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
    message(FATAL_ERROR "nvxcore_generate_messages: set NVXCORE_MESSAGEGEN to an nvxcore-messagegen that runs here")
  else()
    set(generator nvxcore::messagegen)
  endif()

  set(out ${CMAKE_CURRENT_BINARY_DIR}/${GENERATE_TARGET}_messages)
  set(generated)
  foreach(proto ${GENERATE_PROTOS})
    get_filename_component(proto ${proto} REALPATH BASE_DIR ${CMAKE_CURRENT_SOURCE_DIR})
    set(name)
    foreach(folder ${folders})
      cmake_path(IS_PREFIX folder ${proto} NORMALIZE below)
      if(below)
        cmake_path(RELATIVE_PATH proto BASE_DIRECTORY ${folder} OUTPUT_VARIABLE name)
        break()
      endif()
    endforeach()
    if(NOT name)
      message(FATAL_ERROR "nvxcore_generate_messages: ${proto} is below none of the folders ${folders}")
    endif()
    string(REGEX REPLACE "\\.proto$" "" name ${name})
    set(results ${out}/${name}.pb.h ${out}/${name}.pb.cc)
    add_custom_command(
      OUTPUT ${results}
      COMMAND ${generator} --out ${out} ${options} --depfile ${out}/${name}.pb.d ${proto}
      DEPENDS ${proto} ${generator}
      DEPFILE ${out}/${name}.pb.d
      COMMENT "Making messages from ${name}.proto"
      VERBATIM)
    list(APPEND generated ${results})
  endforeach()
  target_sources(${GENERATE_TARGET} PRIVATE ${generated})
  target_include_directories(${GENERATE_TARGET} PUBLIC $<BUILD_INTERFACE:${out}>)
  set_target_properties(${GENERATE_TARGET} PROPERTIES NVXCORE_MESSAGE_HEADERS ${out})
endfunction()
