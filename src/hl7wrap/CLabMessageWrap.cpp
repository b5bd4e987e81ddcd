#include "hl7wrap/CLabMessageWrap.h"

#include <ctime>

namespace ZELHL7 {

namespace {

std::string LocalTimestamp() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    tzset();  // localtime_r may keep the zone that the device had before
    localtime_r(&now, &local);
    char text[30];
    return std::string(text, std::strftime(text, sizeof text, "%Y%m%d%H%M%S", &local));
}

bool Agree(std::string_view ours, std::string_view theirs) {
    return ours.empty() || theirs.empty() || ours == theirs;
}

}  // namespace

void FillHeader(Segment::MSH& segment, const MessageHeader& header, Acknowledge acknowledge, std::string_view profile) {
    Fill(segment, header);
    SetValueAt<7, 1>(segment, LocalTimestamp());
    SetValueAt<15>(segment, acknowledge == Acknowledge::kByApplication ? "ER" : "NE");
    SetValueAt<16>(segment, acknowledge == Acknowledge::kByApplication ? "AL" : "NE");
    if (!profile.empty()) {
        SetValueAt<21, 1>(segment, profile);
        SetValueAt<21, 2>(segment, "IHE");
    }
}

bool IsHeaderOf(const Segment::MSH& own, const Segment::MSH& read) {
    MessageType ours;
    MessageType theirs;
    Read(&own, ours);
    Read(&read, theirs);
    // Only an acknowledgement has no type before it is set: its trigger event is that of the answered message.
    return Agree(ours.code.empty() ? "ACK" : ours.code, theirs.code) && Agree(ours.triggerEvent, theirs.triggerEvent) &&
           Agree(ours.structure, theirs.structure);
}

}  // namespace ZELHL7
