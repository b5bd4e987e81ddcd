#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "deliver/CDeliveryQueue.h"
#include "gateway/CAlarms.h"
#include "gateway/CAnalyzer.h"
#include "store/Records.h"

/// What the API says, as docs/gateway.md describes it. Times are texts as "2026-11-21T10:36:37.123Z".
namespace ZELPC {

nlohmann::json ToJson(const AnalyzerView& analyzer);
nlohmann::json ToJson(const StoredResult& result);
/// What the result's text says.
nlohmann::json ValuesJson(const std::string& text);
nlohmann::json ToJson(const Delivery& delivery);
nlohmann::json ToJson(const AsideText& aside);
nlohmann::json ToJson(const Alarm& alarm);
nlohmann::json ToJson(const QueueCount& count, const DeliveryStatus* status);

/// One line; what is not UTF-8 becomes the sign for that.
std::string Dump(const nlohmann::json& value);

/// Null for 0.
nlohmann::json TimeJson(std::int64_t milliseconds);
/// Reads "2026-11-21", "2026-11-21T10:36" or "2026-11-21T10:36:37", with "Z" in UTC, else in local time; 0: it is none.
std::int64_t ParseTime(const std::string& text);

const char* NameOf(DeliveryState state);

}  // namespace ZELPC
