// Conversion of configuration attributes.
//
// The program is linked so that every strtoull of the server, which std::stoull calls, passes through here.
#include "config/config_transfer.h"

#include <tinyxml2.h>

#include <cstdlib>
#include <string>

#include "support/journal_text.h"
#include "support/platform_test.h"

using support::Lines;
using support::LogLines;

namespace {

bool g_readsNumbers = true;  // else strtoull finds none

}  // namespace

extern "C" {

unsigned long long __wrap_strtoull(const char* text, char** end, int base) {
    if (g_readsNumbers) {
        return strtouq(text, end, base);  // the same function by another name
    }
    *end = const_cast<char*>(text);
    return 0;
}

// Its name in newer C libraries.
unsigned long long __wrap___isoc23_strtoull(const char* text, char** end, int base) {
    return __wrap_strtoull(text, end, base);
}
}

namespace {

class ConfigTransferTest : public support::PlatformTest {
protected:
    // The element of this text.
    tinyxml2::XMLElement* Element(const std::string& xml) {
        EXPECT_EQ(m_document.Parse(xml.c_str()), 0);
        return m_document.RootElement();
    }

    unsigned int Number(const std::string& value) {
        unsigned int out = 99;
        ConfigTransfer::TransUint32Attr(Element("<a timeout='" + value + "'/>"), "timeout", out);
        return out;
    }

    InspectCopyFunction Folder(const std::string& xml) {
        InspectCopyFunction fn = nullptr;
        ConfigTransfer::TransFolderAttr(Element(xml), fn);
        return fn;
    }

    long Bits(const std::string& xml, const std::vector<std::string>& attrs) {
        long bits = 99;
        ConfigTransfer::TransBitAttr(Element(xml), attrs, bits);
        return bits;
    }

private:
    tinyxml2::XMLDocument m_document;
};

unsigned int FromText(const std::string& text) {
    unsigned int out = 99;
    ConfigTransfer::String2Uint32(text, out);
    return out;
}

}  // namespace

TEST_F(ConfigTransferTest, AllNumWantsDigitsOnlyAndAtLeastOne) {
    EXPECT_TRUE(ConfigTransfer::IsAllNum("0123456789"));
    for (const char* text : {"", " 1", "1 ", "+1", "-1", "1a", "0x1", "1.0"}) {
        EXPECT_FALSE(ConfigTransfer::IsAllNum(text)) << text;
    }
}

TEST_F(ConfigTransferTest, AStringOf31CharactersIsKeptAndOneOf32IsEmpty) {
    char out[32] = {};
    ConfigTransfer::TransStringAttr(Element("<a name='" + std::string(31, 'n') + "'/>"), "name", out, sizeof(out));
    EXPECT_EQ(std::string(out), std::string(31, 'n'));
    EXPECT_EQ(LogLines(), Lines{});
    ConfigTransfer::TransStringAttr(Element("<a name='" + std::string(32, 'n') + "'/>"), "name", out, sizeof(out));
    EXPECT_STREQ(out, "");
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: config file value [name] strcpy_s err, ret 34."});
}

TEST_F(ConfigTransferTest, AMissingStringIsLoggedAndLeavesTheField) {
    char out[8] = "before";
    ConfigTransfer::TransStringAttr(Element("<a/>"), "level", out, sizeof(out));
    EXPECT_STREQ(out, "before");
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: config file value [level] get err."});
}

TEST_F(ConfigTransferTest, NumbersOfUpToNineDigitsAreTaken) {
    EXPECT_EQ(Number("0"), 0U);
    EXPECT_EQ(Number("000000007"), 7U);
    EXPECT_EQ(Number("999999999"), 999999999U);
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(ConfigTransferTest, ANumberOfTenCharactersIsZero) {
    EXPECT_EQ(Number("0000000001"), 0U);
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: config file value [timeout] strcpy_s err, ret 34.",
                                 "1 InspectConfigMgr 20: TransUint32Attr [timeout] parse err."}));
}

TEST_F(ConfigTransferTest, ANumberWithALetterIsZero) {
    EXPECT_EQ(Number("12a"), 0U);
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: String2Uint32 err,[12a] is not digit."});
}

TEST_F(ConfigTransferTest, AnEmptyNumberIsZero) {
    EXPECT_EQ(Number(""), 0U);
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: TransUint32Attr [timeout] parse err."});
}

TEST_F(ConfigTransferTest, AMissingNumberIsZero) {
    unsigned int out = 99;
    ConfigTransfer::TransUint32Attr(Element("<a/>"), "timeout", out);
    EXPECT_EQ(out, 0U);
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: config file value [timeout] get err.",
                                 "1 InspectConfigMgr 20: TransUint32Attr [timeout] parse err."}));
}

TEST_F(ConfigTransferTest, LargeNumbersWrapAndTooLargeOnesAreZero) {
    EXPECT_EQ(FromText("4294967295"), 4294967295U);
    EXPECT_EQ(FromText("4294967303"), 7U);
    EXPECT_EQ(FromText("18446744073709551615"), 4294967295U);
    EXPECT_EQ(LogLines(), Lines{});
    EXPECT_EQ(FromText("18446744073709551616"), 0U);
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: String2Uint32 err,[18446744073709551616] Out of range."});
    EXPECT_EQ(FromText(""), 0U);
    EXPECT_EQ(LogLines().back(), "1 InspectConfigMgr 20: String2Uint32 err,[] is not digit.");
}

TEST_F(ConfigTransferTest, DigitsThatAreNoNumberAreZero) {
    g_readsNumbers = false;
    const unsigned int number = FromText("12");
    g_readsNumbers = true;
    EXPECT_EQ(number, 0U);
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: String2Uint32 err,[12] Invalid_argument."});
}

TEST_F(ConfigTransferTest, OnlyTrueIsAFolder) {
    EXPECT_EQ(Folder("<a isFolder='true'/>"), &InspectCopyDirFile);
    for (const char* value : {"TRUE", "1", "true ", "false", "", "True"}) {
        EXPECT_EQ(Folder(std::string("<a isFolder='") + value + "'/>"), &InspectCopyFile) << value;
    }
    EXPECT_EQ(LogLines(), Lines{});
    EXPECT_EQ(Folder("<a/>"), &InspectCopyFile);
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: config file value [isFolder] get err."});
}

TEST_F(ConfigTransferTest, AFolderOf64CharactersIsTooLongToBeRead) {
    EXPECT_EQ(Folder("<a isFolder='" + std::string(63, 't') + "'/>"), &InspectCopyFile);
    EXPECT_EQ(LogLines(), Lines{});
    EXPECT_EQ(Folder("<a isFolder='" + std::string(64, 't') + "'/>"), &InspectCopyFile);
    EXPECT_EQ(LogLines(), Lines{"1 InspectConfigMgr 20: config file value [isFolder] strcpy_s err, ret 34."});
}

TEST_F(ConfigTransferTest, OnlyTrueSetsTheBit) {
    EXPECT_EQ(Bits("<a isSync='true'/>", {"isSync"}), 1);
    EXPECT_EQ(Bits("<a isSync='TRUE'/>", {"isSync"}), 0);
    EXPECT_EQ(Bits("<a isSync='false'/>", {"isSync"}), 0);
    EXPECT_EQ(LogLines(), Lines{});
}

TEST_F(ConfigTransferTest, AMissingOrUnknownFeatureIsLogged) {
    EXPECT_EQ(Bits("<a isFast='true'/>", {"isFast", "isSync"}), 0);
    EXPECT_EQ(LogLines(), (Lines{"1 InspectConfigMgr 20: local bit map [isFast] get err.",
                                 "1 InspectConfigMgr 20: config file value [isSync] get err."}));
    EXPECT_EQ(Bits("<a isSync='true'/>", {}), 0);
}
