# CMake package of the vorka module SDK, installed by `make install` into
# <prefix>/lib/cmake/vorka. A module's CMakeLists.txt uses it with
#   find_package(vorka REQUIRED)
#   target_link_libraries(vrk_mine PRIVATE vorka::sdk)
# The SDK is headers only (<prefix>/include/vorka/module.h): a module never
# links against the host, which hands it a table of functions at load time.
get_filename_component(_vorka_prefix "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
if(NOT TARGET vorka::sdk)
  add_library(vorka::sdk INTERFACE IMPORTED)
  set_target_properties(vorka::sdk PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${_vorka_prefix}/include"
                                              INTERFACE_COMPILE_FEATURES cxx_std_20)
endif()
set(vorka_VERSION 10.5)
unset(_vorka_prefix)
