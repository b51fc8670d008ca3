// SPDX-License-Identifier: Apache-2.0
// The system commands the providers run (platform::PopenStream), each by an
// absolute path. On Solaris these are the native tools; on Linux the first
// four are our stand-ins, which print the same formats from Linux sources.
// ps -aef is native on both. Each is given as a shell word: a stand-in's path
// is quoted, since the directory it is installed in may hold blanks.
#pragma once

namespace platform {

const char *svcs_path();      // Solaris: /usr/bin/svcs
const char *psrinfo_path();   // Solaris: /usr/sbin/psrinfo
const char *pkginfo_path();   // Solaris: /usr/bin/pkginfo
const char *modinfo_path();   // Solaris: /usr/sbin/modinfo
const char *ps_path();        // /bin/ps on both
const char *systemctl_path(); // Linux only: /bin/systemctl (Solaris: svcs)

} // namespace platform
