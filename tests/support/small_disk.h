// A small file system of its own, for what happens when it is full or may not be written to.
#pragma once

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "support/temp_folder.h"

namespace support {

/// Needs root's rights (own_root.h). It is unmounted whatever the test finds.
class SmallDisk {
public:
    explicit SmallDisk(const std::string& size = "2m") {
        EXPECT_EQ(mount("tmpfs", folder_.Path().c_str(), "tmpfs", 0, ("size=" + size + ",mode=0700").c_str()), 0)
            << std::strerror(errno);
    }
    // What still runs in it is left to itself.
    ~SmallDisk() { EXPECT_EQ(umount2(folder_.Path().c_str(), MNT_DETACH), 0) << std::strerror(errno); }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    [[nodiscard]] std::string Path() const { return folder_.Path(); }

    /// Leaves no room for one byte more.
    void Fill() const {
        std::ofstream file(Path() + "/filler", std::ios::binary);
        for (const std::string page(4096, 'f'); file.write(page.data(), page.size()).flush();) {
        }
    }
    void Empty() const { std::filesystem::remove(Path() + "/filler"); }

    void SetReadOnly(bool isReadOnly) const {
        EXPECT_EQ(mount(nullptr, folder_.Path().c_str(), nullptr, MS_REMOUNT | (isReadOnly ? MS_RDONLY : 0), nullptr),
                  0)
            << std::strerror(errno);
    }

private:
    const TempFolder folder_;
};

}  // namespace support
