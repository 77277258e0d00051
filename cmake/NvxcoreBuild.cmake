# What every target of the project is built with, and the layers of the library.

find_program(NVXCORE_CCACHE ccache)
if(NVXCORE_CCACHE AND NVXCORE_IS_TOP_LEVEL AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${NVXCORE_CCACHE})
endif()

add_library(nvxcore_options INTERFACE)
if(NVXCORE_IS_TOP_LEVEL)
  target_compile_options(nvxcore_options INTERFACE -Wall -Wextra -Werror -Wnon-virtual-dtor -Woverloaded-virtual)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(nvxcore_options INTERFACE -Wthread-safety)
  else()
    # g++ 12 warns of overlapping copies within std::string's own operator+ when it optimises (its bug 105651).
    target_compile_options(nvxcore_options INTERFACE -Wno-restrict)
  endif()
endif()
if(NVXCORE_SANITIZE)
  target_compile_options(nvxcore_options INTERFACE -fsanitize=${NVXCORE_SANITIZE} -fno-omit-frame-pointer
                                                   -fno-sanitize-recover=all)
  target_link_options(nvxcore_options INTERFACE -fsanitize=${NVXCORE_SANITIZE})
endif()

# Where nvxcore_generate_messages finds the library's own schemas.
set_property(GLOBAL PROPERTY NVXCORE_SCHEMA_ROOT ${PROJECT_SOURCE_DIR})
include(NvxcoreMessages)

# nvxcore_layer(NAME name PATH folder-below-the-root SOURCES ... DEPENDS layers... LIBRARIES ...)
#
# A layer sees its own folder and those of the layers that it depends on, and no other: its include path is a tree of
# links with just these in it. A wrong #include fails to build.
set_property(GLOBAL PROPERTY NVXCORE_LAYERS "")
function(nvxcore_layer)
  cmake_parse_arguments(LAYER "" "NAME;PATH" "SOURCES;DEPENDS;LIBRARIES" ${ARGN})
  set(root ${PROJECT_BINARY_DIR}/layers/${LAYER_NAME})
  get_filename_component(parent ${root}/${LAYER_PATH} DIRECTORY)
  file(MAKE_DIRECTORY ${parent})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${LAYER_PATH} ${root}/${LAYER_PATH} SYMBOLIC)

  set(target nvxcore_layer_${LAYER_NAME})
  add_library(${target} OBJECT ${LAYER_SOURCES})
  target_include_directories(${target} PUBLIC ${root})
  target_link_libraries(${target} PRIVATE nvxcore_options)
  foreach(dependency ${LAYER_DEPENDS})
    target_include_directories(${target} PUBLIC $<TARGET_PROPERTY:nvxcore_layer_${dependency},INTERFACE_INCLUDE_DIRECTORIES>)
    # Headers that are generated for it come first.
    add_dependencies(${target} nvxcore_layer_${dependency})
  endforeach()
  target_link_libraries(${target} PRIVATE ${LAYER_LIBRARIES})
  set_property(GLOBAL APPEND PROPERTY NVXCORE_LAYERS ${target})
  set_property(GLOBAL APPEND PROPERTY NVXCORE_LIBRARIES ${LAYER_LIBRARIES})
endfunction()
