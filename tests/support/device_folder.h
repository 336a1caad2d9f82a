// A device of the test's own: the sources under test put "device" before the device's absolute paths, and that is a
// folder below the working directory.
#pragma once

#include <string>

#include "support/platform_test.h"
#include "support/temp_folder.h"

namespace support {

/// Runs each test in an empty working folder.
class DeviceTest : public PlatformTest {
protected:
    static void Write(const std::string& path, const std::string& text) { WriteFile(path, text); }

    /// The text of a file; "(none)" when there is none.
    static std::string Read(const std::string& path) {
        return std::filesystem::exists(path) ? Contents(path) : "(none)";
    }

    const WorkingFolder m_working;
};

}  // namespace support
