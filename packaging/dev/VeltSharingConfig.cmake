# find_package(VeltSharing): VeltSharing::plugin for render plugins, VeltSharing::webapi for API modules.
include(CMakeFindDependencyMacro)
find_dependency(PkgConfig)
pkg_check_modules(VeltSharing_jsoncpp REQUIRED QUIET IMPORTED_TARGET jsoncpp)

if(NOT TARGET VeltSharing::plugin)
  add_library(VeltSharing::plugin INTERFACE IMPORTED)
  set_target_properties(VeltSharing::plugin PROPERTIES
    INTERFACE_COMPILE_FEATURES cxx_std_20
    INTERFACE_INCLUDE_DIRECTORIES /usr/include/velt-sharing
    INTERFACE_LINK_LIBRARIES "/usr/velt/lib/libveltsharing.so;PkgConfig::VeltSharing_jsoncpp")
  add_library(VeltSharing::webapi INTERFACE IMPORTED)
  set_target_properties(VeltSharing::webapi PROPERTIES
    INTERFACE_LINK_LIBRARIES "VeltSharing::plugin;/usr/velt/lib/libveltwebapi.so;/usr/velt/lib/libveltsys.so")
endif()
