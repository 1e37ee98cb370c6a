# Warnings are errors, for every target of ours.
add_library(TarnlinkWarnings INTERFACE)
target_compile_options(TarnlinkWarnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # libstdc++ 12 calls functions of its own that it has deprecated.
  target_compile_options(TarnlinkWarnings INTERFACE -Wno-deprecated-declarations)
endif()

# A folder is a target. Its headers are found under the folder's name, but only by targets that
# link it: an include against the direction of the architecture does not compile.
#
#   tarn_library(NAME [FOLDER folder] SOURCES file... [PUBLIC target...] [PRIVATE target...])
function(tarn_library name)
  cmake_parse_arguments(arg "" "FOLDER" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  if(NOT arg_FOLDER)
    set(arg_FOLDER ${name})
  endif()
  set(includeRoot ${PROJECT_BINARY_DIR}/include/${name})
  get_filename_component(above ${includeRoot}/${arg_FOLDER} DIRECTORY)
  file(MAKE_DIRECTORY ${above})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${arg_FOLDER} ${includeRoot}/${arg_FOLDER} SYMBOLIC)

  add_library(${name} STATIC ${arg_SOURCES})
  target_include_directories(${name} PUBLIC ${includeRoot})
  target_link_libraries(${name} PUBLIC ${arg_PUBLIC} PRIVATE TarnlinkWarnings ${arg_PRIVATE})
endfunction()

# A header made from a template when the build is configured, found as FOLDER/NAME.
function(tarn_generated_header target folder name)
  set(root ${PROJECT_BINARY_DIR}/generated/${target})
  configure_file(${PROJECT_SOURCE_DIR}/${folder}/${name}.in ${root}/${folder}/${name} @ONLY)
  target_include_directories(${target} PUBLIC ${root})
endfunction()
