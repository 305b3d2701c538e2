# vorka_layer(<folder> [LINKS <PUBLIC|PRIVATE lower layer library>...]
#             [EXCLUDE <file.cpp>...])
#
# Makes the library vorka_<folder> of one source folder: the folder's own *.cpp
# files (not its sub-folders; of platform/ only this platform's), with the folder's headers reachable as
# "<folder>/x.h" to the library itself and to the libraries that link it.
#
# The source root is on no include path. Each layer instead gets an include
# root of its own in the build tree holding one symbolic link, named like the
# folder, to the folder. A library sees its own root and the roots of the
# libraries it links, nothing else, so a header of a higher layer (or of a lower
# layer it does not link) is simply not found: an include against the layer
# order stops the build with "No such file or directory". The links are made
# when CMake configures, so Ninja and Makefile builds see the same tree.
#
# There is no way around this: a layer that needs something of a higher one
# calls it through an interface the higher layer installs (docs/ARCHITECTURE.md).
#
# The libraries are object libraries: `vorka_core` (in the top CMakeLists.txt)
# gathers all of them into the one static library that the executable, the
# unit tests, the benchmarks and the fuzz targets link.
function(vorka_layer folder)
  cmake_parse_arguments(LAYER "" "" "LINKS;EXCLUDE" ${ARGN})
  set(lib vorka_${folder})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  vorka_platform_filter(sources)
  foreach(excluded ${LAYER_EXCLUDE})
    list(REMOVE_ITEM sources ${CMAKE_CURRENT_SOURCE_DIR}/${excluded})
  endforeach()
  add_library(${lib} OBJECT ${sources})
  set(root ${CMAKE_BINARY_DIR}/layers/${folder})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${root}/${folder} SYMBOLIC)
  target_include_directories(${lib} PUBLIC ${root})
  if(LAYER_LINKS)
    target_link_libraries(${lib} ${LAYER_LINKS})
  endif()
  if(VORKA_FUZZ)
    target_compile_options(${lib} PRIVATE ${VORKA_FUZZ_LIBRARY_OPTIONS})
  endif()
endfunction()
