// The base of tests on the server's one result table.
#pragma once

#include <string>
#include <vector>

#include "result/result_mgr.h"
#include "support/owner.h"
#include "support/platform_test.h"
#include "support/records.h"

namespace support {

/// Begins each test with an idle server and deletes the test's items at its end, which ends their jobs.
class ServerTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        g_resultMgr.Init();
    }

    void TearDown() override {
        for (const std::string& name : m_items) {
            g_resultMgr.DelItem(name);
        }
        PlatformTest::TearDown();
    }

    /// Registers an item of the scripted owner and forgets what was recorded of it.
    void AddItem(const std::string& name, unsigned int timeout = 0) {
        DeleteAtEnd(name);
        g_resultMgr.AddItem(name, timeout, Owner());
        kivo::fake::ClearJournal();
    }

    /// What the result table holds of an item; "||" for an unknown one.
    static std::string Stored(const std::string& name) {
        tagKivoOmInspectionDataItem item{};
        g_resultMgr.GetResultStatic(name, item);
        return Show(item.result);
    }

    void DeleteAtEnd(const std::string& name) { m_items.push_back(name); }

private:
    std::vector<std::string> m_items;
};

}  // namespace support
