#include <algorithm>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "cli/Commands.h"
#include "cli/ExitStatus.h"
#include "cli/Output.h"
#include "cli/ResultText.h"
#include "packet/Capture.h"
#include "packet/PacketText.h"
#include "result/MessageText.h"
#include "wire/PCCommand.h"

namespace ZELPC {

using nlohmann::json;

namespace {

/// More than any message or a long capture.
constexpr std::size_t kMostBytes = std::size_t{64} << 20;

std::optional<std::string> ReadWhole(const std::string& path) {
    std::ifstream file;
    if (path != "-") {
        file.open(path, std::ios::binary);
    }
    std::istream& input = path == "-" ? std::cin : file;
    std::string bytes;
    char piece[1 << 16];
    while (input.read(piece, sizeof piece) || input.gcount() > 0) {
        bytes.append(piece, static_cast<std::size_t>(input.gcount()));
        if (bytes.size() > kMostBytes) {
            return std::nullopt;
        }
    }
    return input.bad() || !input.eof() ? std::nullopt : std::optional(bytes);
}

/// A message as an analyzer sends it, from one whose segments an editor or a frame has given other ends.
std::string AsSent(std::string text) {
    constexpr char kFrame[] = "\x0B\x1C";
    std::erase_if(text, [&kFrame](char c) { return c == kFrame[0] || c == kFrame[1]; });
    if (text.find('\r') == std::string::npos) {
        std::ranges::replace(text, '\n', '\r');
    }
    std::erase(text, '\n');
    return text;
}

bool IsMessage(const std::string& text) {
    return text.starts_with("MSH") || text.starts_with("\x0BMSH");
}

void ShowMessage(const std::string& text, bool asJson) {
    const auto result = ReadLabResult(text);
    const std::vector<MessageField> fields = ListMessage(text);
    if (asJson) {
        json object = result ? ResultJson(*result) : json::object();
        object["event"] = "message";
        object["fields"] = json::array();
        for (const MessageField& field : fields) {
            object["fields"].push_back({{"field", field.place}, {"name", field.name}, {"value", field.value}});
        }
        PrintJson(object);
        return;
    }
    std::vector<std::string> lines = result ? ResultText(*result) : std::vector<std::string>{};
    std::vector<std::vector<std::string>> rows;
    for (const MessageField& field : fields) {
        rows.push_back({field.place, field.name, field.value});
    }
    if (!lines.empty()) {
        lines.emplace_back();
    }
    for (std::string& line : Table(rows)) {
        lines.push_back(std::move(line));
    }
    for (const std::string& line : lines) {
        PrintLine(line);
    }
}

void ShowPacket(const CapturedPacket& packet, bool asJson) {
    const std::vector<std::string> lines = DescribePacket(packet.header, packet.payload);
    const std::string text(packet.payload.begin(), packet.payload.end());
    const auto result = packet.header.command == PCCommand::kResult ? ReadLabResult(text) : std::nullopt;
    if (asJson) {
        json object = {{"event", "packet"}, {"from", packet.from}, {"to", packet.to}, {"says", lines}};
        object["command"] = static_cast<std::uint16_t>(packet.header.command);
        if (result) {
            object["result"] = ResultJson(*result);
        }
        PrintJson(object);
        return;
    }
    PrintLine((packet.from.empty() ? "" : packet.from + " > " + packet.to + "  ") + lines.front());
    for (std::size_t i = 1; i < lines.size(); ++i) {
        PrintLine("    " + lines[i]);
    }
    for (const std::string& line : result ? ResultText(*result) : std::vector<std::string>{}) {
        PrintLine("    " + line);
    }
}

}  // namespace

int RunDecode(const DecodeOptions& options) {
    const auto bytes = ReadWhole(options.file);
    if (!bytes) {
        PrintProblem(options.file + " cannot be read, or holds more than 64 MiB");
        return kUsage;
    }
    if (IsMessage(*bytes)) {
        ShowMessage(AsSent(*bytes), options.json);
        return kDone;
    }
    const Capture capture = ReadCapture(*bytes);
    for (const CapturedPacket& packet : capture.packets) {
        ShowPacket(packet, options.json);
    }
    if (!capture.problem.empty()) {
        PrintProblem(capture.problem);
        return kUnfit;
    }
    return kDone;
}

}  // namespace ZELPC
