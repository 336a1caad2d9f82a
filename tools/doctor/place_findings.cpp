// stat(2) and statvfs(3) need no rights in the folder itself.
#include "doctor/place_findings.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/timex.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "common/error.h"
#include "common/table.h"
#include "common/times.h"
#include "doctor/person.h"

namespace ominspect::doctor {

Finding JudgeConfiguration(const std::string& path, const Diagnosis& diagnosis, bool isAsSchemaHasIt) {
    if (diagnosis.unreadable) {
        const bool isThere = access(path.c_str(), F_OK) == 0;
        return {Verdict::kWarning, "configuration",
                path + ": " + (isThere ? diagnosis.unreadable->text : "not there") +
                    "; so the built-in items are supported, and nothing is collected",
                isThere ? "mend it, and restart the server"
                        : "put a file there, for instance share/ominspect/inspect_config.xml, and restart the server"};
    }
    const std::string content = path + ": " + std::to_string(diagnosis.items.size()) + " items, " +
                                std::to_string(diagnosis.entries) + " collection entries";
    if (diagnosis.FallsBack()) {
        return {Verdict::kWarning, "configuration", content + "; some values fall back",
                "ominspectctl doctor --config " + path + " says which"};
    }
    const bool hasNotes = std::any_of(diagnosis.elements.begin(), diagnosis.elements.end(),
                                      [](const ElementReport& one) { return !one.notes.empty(); });
    if (hasNotes || !isAsSchemaHasIt) {
        return {Verdict::kWarning, "configuration", content + "; some of it does not mean what it looks like",
                "ominspectctl doctor --config " + path + " says what"};
    }
    return {Verdict::kGood, "configuration", content};
}

Finding JudgeFolder(const std::string& subject, const std::string& path, const std::string& user,
                    unsigned long long leastFree) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        if (errno == EACCES) {
            return {Verdict::kUnknown, subject, path + ": not visible to this user"};
        }
        return errno == ENOENT
                   ? Finding{Verdict::kUnknown, subject, path + ": not there; it is made when something is written"}
                   : Finding{Verdict::kWarning, subject, path + ": " + SystemText(errno), "look at the path above it"};
    }
    if (!S_ISDIR(status.st_mode)) {
        return {Verdict::kWarning, subject, path + ": not a folder", "remove it, and restart the server"};
    }
    const std::string owner = UserName(status.st_uid);
    if (!user.empty() && (owner != user || (status.st_mode & S_IWUSR) == 0)) {
        return {Verdict::kWarning, subject, path + ": user " + user + " may not write there (it is " + owner + "'s)",
                "chown " + user + ' ' + path + "; chmod u+rwx " + path};
    }
    struct statvfs disk {};
    if (statvfs(path.c_str(), &disk) != 0) {
        return {Verdict::kUnknown, subject, path + ": " + SystemText(errno)};
    }
    const unsigned long long free = static_cast<unsigned long long>(disk.f_bavail) * disk.f_frsize;
    const std::string room = path + ": " + text::Size(static_cast<double>(free)) + " free";
    if ((disk.f_flag & ST_RDONLY) != 0) {
        return {Verdict::kWarning, subject, path + ": on a read-only file system", "mount it for writing"};
    }
    if (free < leastFree) {
        return {Verdict::kWarning, subject, room,
                "make room: " + text::Size(static_cast<double>(leastFree)) + " should be free"};
    }
    return {Verdict::kGood, subject, room};
}

Finding JudgeClock(std::time_t now, bool isSynchronised) {
    constexpr std::time_t kBeginOf2026 = 1767225600;  // no build of this program is older
    const std::string time = UtcSecond(std::chrono::system_clock::from_time_t(now));
    if (now < kBeginOf2026) {
        return {Verdict::kFailure, "clock", time + ": not set; times of results and logs are wrong",
                "set it: timedatectl set-ntp true; look at the battery of the board"};
    }
    if (!isSynchronised) {
        return {Verdict::kWarning, "clock", time + ", not synchronised",
                "timedatectl set-ntp true; timedatectl status"};
    }
    return {Verdict::kGood, "clock", time + ", synchronised"};
}

std::string PolicyAdvice(const std::vector<std::string>& read, const std::string& installed) {
    constexpr const char* kName = "/com.kivo.proc.conf";
    const auto isIn = [](const std::string& folder) { return access((folder + kName).c_str(), R_OK) == 0; };
    if (std::any_of(read.begin(), read.end(), isIn)) {
        return "systemctl reload dbus";
    }
    if (isIn(installed)) {
        return "ln -s " + installed + kName + ' ' + read.back() + "; systemctl reload dbus";
    }
    return "install the package ominspect, which brings the policy";
}

bool IsClockSynchronised() {
    timex state{};
    return adjtimex(&state) != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
}

}  // namespace ominspect::doctor
