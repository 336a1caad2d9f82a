// The version that a process shows on the bus.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "bus_test.h"
#include "support/raw_connection.h"

using namespace support;

namespace {

class OsProcVersion : public DetachedTest {
protected:
    void TearDown() override {
        DetachedTest::TearDown();
        OsProcSetVersion(nullptr);
    }

    /// What the process "tester" shows; the error's name if it shows none.
    static std::string Shown() {
        const RawConnection connection;
        sd_bus_error error = SD_BUS_ERROR_NULL;
        char* text = nullptr;
        std::string shown;
        if (sd_bus_get_property_string(connection.Get(), "com.kivo.proc.tester", "/com/kivo/process",
                                       "com.kivo.Msg.Process", "Version", &error, &text) >= 0) {
            shown = text;
        } else {
            shown = error.name;
        }
        free(text);
        sd_bus_error_free(&error);
        return shown;
    }

    static std::string ShownAfterJoining() {
        EXPECT_EQ(OsProcAttach("tester"), OS_MSG_OK);
        return Shown();
    }
};

TEST_F(OsProcVersion, IsAPropertyOfTheProcess) {
    std::string text = "1.2.3";
    OsProcSetVersion(text.c_str());
    text = "gone";
    EXPECT_EQ(ShownAfterJoining(), "1.2.3");
}

TEST_F(OsProcVersion, HoldsFromTheNextJoiningOn) {
    OsProcSetVersion("1");
    EXPECT_EQ(ShownAfterJoining(), "1");
    OsProcDetach();
    OsProcSetVersion("2");
    EXPECT_EQ(ShownAfterJoining(), "2");
}

TEST_F(OsProcVersion, IsNotThereUnlessItIsSet) {
    EXPECT_EQ(ShownAfterJoining(), SD_BUS_ERROR_UNKNOWN_PROPERTY);
    for (const char* none : {static_cast<const char*>(nullptr), "", "\xff"}) {
        OsProcDetach();
        OsProcSetVersion("1");
        OsProcSetVersion(none);
        EXPECT_EQ(ShownAfterJoining(), SD_BUS_ERROR_UNKNOWN_PROPERTY);
    }
}

}  // namespace
