#pragma once

#include <fmt/format.h>

#include <future>
#include <string>

#include "store/CStore.h"

namespace ZELPC {

/// A patient result as an analyzer sends it.
inline std::string ResultMessage(const std::string& patient, const std::string& built = "20261121103637",
                                 const std::string& role = "P") {
    return fmt::format(
        "MSH|^~\\&|ORVELA|LAB|NULL|NULL|{}||OUL^R22^OUL_R22|0|P|2.5.1|||ER|AL||UNICODE UTF-8|||LAB-29^IHE\r"
        "PID|||{}||^^^^^^L||20191130|M\rSPM|1|||PLA|||||||{}\rSAC|\rINV|\rOBR||NULL||D0816^Renal "
        "2^ORVELA||||||||||||NULL\r"
        "ORC|SC|NULL|||||||NULL\r"
        "OBX|1||^^LN|BUN|17.5|mg/dL|7.5-27.5||||F||0,0,0,EMPTY,EMPTY,EMPTY,EMPTY,EMPTY|||vet||^Kelvora~^Kelvora|"
        "20230601080001\rSID||L2310\r",
        built, patient, role);
}

/// Until everything that was kept can be found.
inline void File(CStore& store) {
    std::promise<void> promise;
    store.File([&](const std::string*) { promise.set_value(); });
    promise.get_future().get();
}

inline AppendOutcome AppendNow(CStore& store, const std::string& serial, const std::string& text) {
    std::promise<AppendOutcome> promise;
    store.Append({serial, text, 1'700'000'000'000}, [&](const AppendOutcome& outcome) { promise.set_value(outcome); });
    const AppendOutcome outcome = promise.get_future().get();
    File(store);
    return outcome;
}

/// Waits for a change that answers with a count; -1: it failed.
template <class Start>
std::int64_t CountOf(Start start) {
    std::promise<std::int64_t> promise;
    start([&](std::int64_t count, const std::string* error) { promise.set_value(error == nullptr ? count : -1); });
    return promise.get_future().get();
}

}  // namespace ZELPC
