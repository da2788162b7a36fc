# find_package(VeltSharing): the target VeltSharing::plugin, what a plugin library is built with. Holds wherever the
# service's folder stands.
include(CMakeFindDependencyMacro)
find_dependency(PkgConfig)
pkg_check_modules(VeltSharing_jsoncpp REQUIRED QUIET IMPORTED_TARGET jsoncpp)
get_filename_component(VeltSharing_prefix ${CMAKE_CURRENT_LIST_DIR}/../../.. ABSOLUTE)

if(NOT TARGET VeltSharing::plugin)
  add_library(VeltSharing::plugin INTERFACE IMPORTED)
  set_target_properties(VeltSharing::plugin PROPERTIES
    INTERFACE_COMPILE_FEATURES cxx_std_20
    INTERFACE_INCLUDE_DIRECTORIES ${VeltSharing_prefix}/include
    INTERFACE_LINK_LIBRARIES "${VeltSharing_prefix}/lib/libveltsharing.so;PkgConfig::VeltSharing_jsoncpp")
endif()
