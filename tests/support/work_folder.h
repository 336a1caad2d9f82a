// An empty working folder for each test.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/temp_folder.h"

namespace support {

class InWorkFolder : public testing::Test {
protected:
    /// Writes a file below the folder and makes its parents.
    void Write(const std::string& name, const std::string& text) const { WriteFile(In(name), text); }

    [[nodiscard]] std::string In(const std::string& name) const { return m_working / name; }

    WorkingFolder m_working;
    const std::string folder_ = m_working.Path();
};

}  // namespace support
