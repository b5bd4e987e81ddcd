#pragma once

#include <set>

#include "config/CConfigMgr.h"
#include "config/CDeviceInfo.h"
#include "fuzz/Fuzz.h"
#include "unit/support/AnalyzerDatabase.h"
#include "unit/support/ScriptedSession.h"

namespace Fuzz {

/// The device that the handlers of requests work on, in the private paths that tests/private-paths gives: its settings,
/// its identity and a database that knows the password "password" and results of the number 12. No thread runs.
class Device : private UnitTest::ServiceTest {
public:
    static Device& Get();

    /// Puts everything back to where it was, with the status that this number chooses.
    void Reset(std::uint8_t status);

    UnitTest::AnalyzerDatabase& Database() { return database_; }

    /// Whatever came: the settings have the lines that they had, and no file lies where the service has none.
    void RequireOrder() const;

    static constexpr std::uint16_t kPCPort = 40036;

private:
    Device();
    void TestBody() override {}

    UnitTest::AnalyzerDatabase database_;
    std::set<std::filesystem::path> known_;
};

}  // namespace Fuzz
