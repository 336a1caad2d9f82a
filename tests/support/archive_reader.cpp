#include "support/archive_reader.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <memory>

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>

namespace support {

std::vector<Member> ReadArchive(const std::string& path) {
    const std::unique_ptr<archive, int (*)(archive*)> reader(archive_read_new(), archive_read_free);
    (void)std::setlocale(LC_CTYPE, "C.UTF-8");  // the names come in this character set
    (void)archive_read_support_filter_zstd(reader.get());
    (void)archive_read_support_format_tar(reader.get());
    std::vector<Member> members;
    if (archive_read_open_filename(reader.get(), path.c_str(), 65536) != ARCHIVE_OK) {
        ADD_FAILURE() << archive_error_string(reader.get());
        return members;
    }
    archive_entry* entry = nullptr;
    int result = ARCHIVE_OK;
    while ((result = archive_read_next_header(reader.get(), &entry)) >= ARCHIVE_WARN && result != ARCHIVE_EOF) {
        Member member;
        member.name = archive_entry_pathname(entry);
        const auto type = archive_entry_filetype(entry);
        member.type = type == AE_IFREG ? '-' : type == AE_IFDIR ? 'd' : type == AE_IFLNK ? 'l' : '?';
        member.permissions = archive_entry_perm(entry);
        member.modified = archive_entry_mtime(entry);
        member.owner = archive_entry_uid(entry);
        member.group = archive_entry_gid(entry);
        if (const char* target = archive_entry_symlink(entry)) {
            member.target = target;
        }
        std::array<char, 65536> buffer{};
        la_ssize_t got = 0;
        while ((got = archive_read_data(reader.get(), buffer.data(), buffer.size())) > 0) {
            member.content.append(buffer.data(), static_cast<std::size_t>(got));
        }
        EXPECT_EQ(got, 0) << member.name << ": " << archive_error_string(reader.get());
        members.push_back(member);
    }
    EXPECT_EQ(result, ARCHIVE_EOF) << path;
    return members;
}

Member MemberOf(const std::vector<Member>& members, const std::string& name) {
    const auto found =
        std::find_if(members.begin(), members.end(), [&](const Member& member) { return member.name == name; });
    if (found != members.end()) {
        return *found;
    }
    ADD_FAILURE() << "no member " << name;
    return {};
}

std::vector<std::string> Listing(const std::vector<Member>& members) {
    std::vector<std::string> lines;
    lines.reserve(members.size());
    for (const Member& member : members) {
        lines.push_back(std::string(1, member.type) + ' ' + member.name);
    }
    return lines;
}

}  // namespace support
