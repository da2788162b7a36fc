// The source name and line in each log line of the library. Log watchers match on these, so they do
// not change when the code moves.
#pragma once

namespace VELT {

struct LogPlace {
  const char* source;
  int line;
};

namespace log_place {

inline constexpr LogPlace kQRCodeStart{"SharingAPI", 40};
inline constexpr LogPlace kFatalError{"SharingAPI", 157};
inline constexpr LogPlace kLoginGuard{"SharingLoginAPI", 56};
inline constexpr LogPlace kLoginCookie{"SharingLoginAPI", 61};
inline constexpr LogPlace kLoginDenied{"SharingLoginAPI", 98};
inline constexpr LogPlace kLoginPlugins{"SharingLoginAPI", 140};
inline constexpr LogPlace kSessionPlugins{"SharingSessionAPI", 194};
inline constexpr LogPlace kPluginPath{"Plugins", 53};
inline constexpr LogPlace kPluginOpen{"Plugins", 58};
inline constexpr LogPlace kPluginSymbol{"Plugins", 80};
inline constexpr LogPlace kPluginOutput{"PluginCall", 88};
inline constexpr LogPlace kPluginPrinted{"StrayOutput", 31};
inline constexpr LogPlace kPluginElement{"AppConfig", 54};
inline constexpr LogPlace kPackageGuard{"InitDataHandler", 114};
inline constexpr LogPlace kPackageDenied{"InitDataHandler", 123};

}  // namespace log_place
}  // namespace VELT
