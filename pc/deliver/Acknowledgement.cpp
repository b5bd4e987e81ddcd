#include "deliver/Acknowledgement.h"

#include <algorithm>

#include "hl7/segment/Segments.h"

namespace ZELPC {

using namespace HL7v251::Segment;

namespace {

constexpr std::size_t kLongestText = 200;  // of a reason that is kept

/// The line of `message` that begins with the segment `name`, without its end; receivers end lines in several ways.
std::string_view Line(std::string_view message, std::string_view name) {
    while (!message.empty()) {
        const std::size_t end = std::min(message.find_first_of("\r\n"), message.size());
        const std::string_view line = message.substr(0, end);
        if (line.starts_with(name) && line.substr(name.size()).starts_with('|')) {
            return line;
        }
        message.remove_prefix(std::min(end + 1, message.size()));
    }
    return {};
}

template <class Segment>
void Decode(Segment& segment, std::string_view message) {
    std::string_view line = Line(message, Segment::kName);
    segment.DecodeFrom(line);
}

}  // namespace

DeliveryOutcome Acknowledgement::Outcome() const {
    const std::string reason = text.empty() ? code : code + ": " + text;
    if (code == "AA" || code == "CA") {
        return {Verdict::kAccepted, {}};
    }
    if (code == "AR" || code == "CR") {
        return {Verdict::kRejected, reason};
    }
    if (code == "AE" || code == "CE") {
        return {Verdict::kTryAgain, reason};
    }
    return {Verdict::kNoAnswer, "answered with the unknown code \"" + code + "\""};
}

std::optional<Acknowledgement> ReadAcknowledgement(std::string_view message) {
    if (!message.starts_with("MSH|") || Line(message, MSA::kName).empty()) {
        return std::nullopt;
    }
    MSA answer;
    Decode(answer, message);
    Acknowledgement acknowledgement;
    acknowledgement.code = answer.Field<1>().GetValue().substr(0, 8);
    acknowledgement.controlId = answer.Field<2>().GetValue();
    acknowledgement.text = answer.Field<3>().GetValue();
    if (acknowledgement.text.empty()) {
        ERR error;
        Decode(error, message);
        acknowledgement.text = error.Field<3>().Encode();
    }
    acknowledgement.text.resize(std::min(acknowledgement.text.size(), kLongestText));
    return acknowledgement;
}

std::string ControlIdOf(std::string_view message) {
    MSH header;
    Decode(header, message);
    return std::string(header.Field<10>().GetValue());
}

}  // namespace ZELPC
