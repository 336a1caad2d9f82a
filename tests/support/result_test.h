// The base of the tests of the result table: a table of their own.
#pragma once

#include <algorithm>
#include <string>

#include "result/result_mgr.h"
#include "support/owner.h"
#include "support/platform_test.h"
#include "support/records.h"

/// Starts and stops runs on an entry of the test's own.
class ResultMgrPeer {
public:
    explicit ResultMgrPeer(ResultMgr& mgr) : m_mgr(mgr) {}

    void Start(ResultData& data) { m_mgr.StartInspect(data); }
    void Start(ResultData& data, const std::string& text) { m_mgr.StartInspect(data, text); }
    void Stop(ResultData& data, bool force) { m_mgr.StopInspect(data, force); }
    void Stop(ResultData& data, const std::string& text, bool force) { m_mgr.StopInspect(data, text, force); }

    /// Whether there is an entry of that name.
    bool Knows(const std::string& name) { return m_mgr.Find(name) != nullptr; }

    /// The entry of that name; it must exist.
    ResultData& Entry(const std::string& name) { return *m_mgr.Find(name); }

private:
    ResultMgr& m_mgr;
};

namespace support {

class ResultTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        m_mgr.Init();
    }

    /// Items are "a", "b" or "c", or else deleted by the test itself.
    void TearDown() override {
        for (const char* name : {"a", "b", "c"}) {
            m_mgr.DelItem(name);
        }
        PlatformTest::TearDown();
    }

    /// Registers an item of the scripted owner and forgets what was recorded of it.
    void AddItem(const std::string& name, unsigned int timeout = 0) {
        m_mgr.AddItem(name, timeout, Owner());
        kivo::fake::ClearJournal();
    }

    /// Runs an item through GetResult and shows what that gave.
    std::string Run(const std::string& name) {
        m_item = {};
        tagKivoOmInspectionRequestMsg request{"", 3, 0, "{}"};
        std::copy(name.begin(), name.end(), static_cast<char*>(request.name));
        m_mgr.GetResult(request, m_item);
        return Show(m_item.result);
    }

    /// What the table holds of an item; "||" for an unknown one.
    std::string Stored(const std::string& name) {
        m_item = {};
        m_mgr.GetResultStatic(name, m_item);
        return Show(m_item.result);
    }

    /// What UnLockResult gives: its result and the item, as in "1 name|status|text".
    std::string UnLock(const std::string& name) {
        m_item = {};
        const uint32_t result = m_mgr.UnLockResult(name, m_item);
        return std::to_string(result) + " " + Show(m_item.result);
    }

    void Report(std::string_view name, std::string_view status, std::string_view text) {
        tagKivoOmInspectionResult result = Result(name, status, text);
        m_mgr.SetResult(result);
    }

    ResultMgr m_mgr;
    tagKivoOmInspectionDataItem m_item{};  // of the last Run, Stored or UnLock
};

}  // namespace support
