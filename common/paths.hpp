// paths.hpp - every fixed path of the product. No environment variable redirects them.
#pragma once

namespace ovrmail::common::paths {

inline constexpr const char* kInstallDir = "/opt/Quorvin";
inline constexpr const char* kConfigDir = "/etc/opt/Quorvin";
inline constexpr const char* kDataDir = "/var/opt/Quorvin";

inline constexpr const char* kAgentRecord = "/opt/Quorvin/etc/Dovrin.reg";
inline constexpr const char* kSettingsRecord = "/opt/Quorvin/etc/korvanta.reg";

inline constexpr const char* kTraceConfig = "/etc/opt/Quorvin/trc_conf";
inline constexpr const char* kMailOptions = "/etc/opt/Quorvin/rmmail.ini";
inline constexpr const char* kResolverConfig = "/etc/resolv.conf";

inline constexpr const char* kWorkDirFormat = "%s/tmp";    // of kDataDir
inline constexpr const char* kTraceDirFormat = "%s/tmp2";  // of kDataDir
inline constexpr const char* kLogDirFormat = "%s/log";     // of kDataDir

// How names begin there; the process id follows.
inline constexpr const char* kSendRingPrefix = "acert";    // of kTraceDirFormat, then ".trc"
inline constexpr const char* kMailLogPrefix = "rmsmtp";    // of kLogDirFormat, then ".log"
inline constexpr const char* kBodyFilePrefix = "EMT";      // of kWorkDirFormat
inline constexpr const char* kComposedFilePrefix = "EST";  // of kWorkDirFormat

inline constexpr const char* kPartnerInstallDir = "/opt/Brelltam";
inline constexpr const char* kPartnerConfigDir = "/etc/opt/Brelltam";
inline constexpr const char* kPartnerDataDir = "/var/opt/Brelltam";

inline constexpr const char* kManagerRecord = "/opt/korvanta/etc/korvanta.reg";
inline constexpr const char* kManagerInstallDir = "/opt/Taskivo";
inline constexpr const char* kManagerConfigDir = "/etc/opt/Taskivo";
inline constexpr const char* kManagerDataDir = "/var/opt/Taskivo";
inline constexpr const char* kManagerPartnerInstallDir = "/opt/Mervath";
inline constexpr const char* kManagerPartnerConfigDir = "/etc/opt/Mervath";
inline constexpr const char* kManagerPartnerDataDir = "/var/opt/Mervath";

}  // namespace ovrmail::common::paths
