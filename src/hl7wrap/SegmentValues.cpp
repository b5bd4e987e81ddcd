#include "hl7wrap/SegmentValues.h"

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

}  // namespace

void FillHeader(Segment::MSH& header, Acknowledge acknowledge, std::string_view sendingApplication,
                std::string_view sendingFacility, std::string_view receivingApplication,
                std::string_view receivingFacility, std::string_view messageControlId) {
    header.Field<3>().Component<1>().SetValue(sendingApplication);
    header.Field<4>().Component<1>().SetValue(sendingFacility);
    header.Field<5>().Component<1>().SetValue(receivingApplication);
    header.Field<6>().Component<1>().SetValue(receivingFacility);
    header.Field<7>().Component<1>().SetValue(LocalTimestamp());
    header.Field<10>().SetValue(messageControlId);
    header.Field<11>().Component<1>().SetValue("P");
    header.Field<15>().SetValue(acknowledge == Acknowledge::kByApplication ? "ER" : "NE");
    header.Field<16>().SetValue(acknowledge == Acknowledge::kByApplication ? "AL" : "NE");
    header.Field<18>().SetValue("UNICODE UTF-8");
}

void FillProfile(Segment::MSH& header, std::string_view profile) {
    header.Field<21>().Component<1>().SetValue(profile);
    header.Field<21>().Component<2>().SetValue("IHE");
}

int ReadHeader(const Segment::MSH& header, std::string& sendingApplication, std::string& sendingFacility,
               std::string& receivingApplication, std::string& receivingFacility, std::string& messageControlId) {
    sendingApplication = header.Field<3>().Component<1>().GetValue();
    sendingFacility = header.Field<4>().Component<1>().GetValue();
    receivingApplication = header.Field<5>().Component<1>().GetValue();
    receivingFacility = header.Field<6>().Component<1>().GetValue();
    messageControlId = header.Field<10>().GetValue();
    return 1;
}

int ReadMessageType(const Segment::MSH& header, std::string& code, std::string& triggerEvent, std::string& structure) {
    code = header.Field<9>().Component<1>().GetValue();
    triggerEvent = header.Field<9>().Component<2>().GetValue();
    structure = header.Field<9>().Component<3>().GetValue();
    return 1;
}

bool IsHeaderOf(const Segment::MSH& own, const Segment::MSH& read) {
    const auto agree = [](const std::string& ours, const std::string& theirs) {
        return ours.empty() || theirs.empty() || ours == theirs;
    };
    const auto& ours = own.Field<9>();
    const auto& theirs = read.Field<9>();
    // Only an acknowledgement has no type before it is set: its trigger event is that of the answered message.
    const std::string& code = ours.Component<1>().GetValue();
    return agree(code.empty() ? "ACK" : code, theirs.Component<1>().GetValue()) &&
           agree(ours.Component<2>().GetValue(), theirs.Component<2>().GetValue()) &&
           agree(ours.Component<3>().GetValue(), theirs.Component<3>().GetValue());
}

void FillAcknowledgment(Segment::MSA& acknowledgment, std::string_view code, std::string_view messageControlId,
                        std::string_view text) {
    acknowledgment.Field<1>().SetValue(code);
    acknowledgment.Field<2>().SetValue(messageControlId);
    acknowledgment.Field<3>().SetValue(text);
}

int ReadAcknowledgment(const Segment::MSA& acknowledgment, std::string& code, std::string& messageControlId,
                       std::string& text) {
    code = acknowledgment.Field<1>().GetValue();
    messageControlId = acknowledgment.Field<2>().GetValue();
    text = acknowledgment.Field<3>().GetValue();
    return 1;
}

void FillError(Segment::ERR& error, std::string_view segmentName, std::string_view segmentNumber,
               std::string_view fieldPosition, std::string_view errorCode, std::string_view errorText,
               std::string_view severity) {
    error.Field<2>().Component<1>().SetValue(segmentName);
    error.Field<2>().Component<2>().SetValue(segmentNumber);
    error.Field<2>().Component<3>().SetValue(fieldPosition);
    error.Field<3>().Component<1>().SetValue(errorCode);
    error.Field<3>().Component<2>().SetValue(errorText);
    error.Field<3>().Component<3>().SetValue("HL70357");
    error.Field<4>().SetValue(severity);
}

int ReadError(const Segment::ERR* error, std::string& segmentName, std::string& segmentNumber,
              std::string& fieldPosition, std::string& errorCode, std::string& errorText, std::string& severity) {
    if (error == nullptr) {
        return 0;
    }
    segmentName = error->Field<2>().Component<1>().GetValue();
    segmentNumber = error->Field<2>().Component<2>().GetValue();
    fieldPosition = error->Field<2>().Component<3>().GetValue();
    errorCode = error->Field<3>().Component<1>().GetValue();
    errorText = error->Field<3>().Component<2>().GetValue();
    severity = error->Field<4>().GetValue();
    return 1;
}

void FillPatient(Segment::PID& patient, std::string_view patientId, std::string_view familyName,
                 std::string_view givenName, std::string_view birthDate, std::string_view sex,
                 std::string_view speciesCode, std::string_view clientId, std::string_view speciesText) {
    patient.Field<3>().Component<1>().SetValue(patientId);
    auto& name = patient.Field<5>();
    name.Component<1>().Component<1>().SetValue(familyName);
    name.Component<2>().SetValue(givenName);
    name.Component<7>().SetValue("L");
    patient.Field<7>().Component<1>().SetValue(birthDate);
    patient.Field<8>().SetValue(sex);
    if (!speciesCode.empty()) {
        auto& species = patient.Field<35>();
        species.Component<1>().SetValue(speciesCode);
        species.Component<2>().SetValue(speciesCode);
        species.Component<3>().SetValue(kCodingSystem);
        species.Component<5>().SetValue(speciesText);
    }
    if (!clientId.empty()) {
        patient.Field<21>().Component<1>().SetValue(clientId);
    }
}

int ReadPatient(const Segment::PID* patient, std::string& patientId, std::string& familyName, std::string& givenName,
                std::string& birthDate, std::string& sex, std::string& speciesCode, std::string& clientId,
                std::string& speciesText) {
    if (patient == nullptr) {
        return 0;
    }
    patientId = patient->Field<3>().Component<1>().GetValue();
    familyName = patient->Field<5>().Component<1>().Component<1>().GetValue();
    givenName = patient->Field<5>().Component<2>().GetValue();
    birthDate = patient->Field<7>().Component<1>().GetValue();
    sex = patient->Field<8>().GetValue();
    speciesCode = patient->Field<35>().Component<1>().GetValue();
    clientId = patient->Field<21>().Component<1>().GetValue();
    speciesText = patient->Field<35>().Component<5>().GetValue();
    return 1;
}

void FillSpecimen(Segment::SPM& specimen, std::string_view specimenType, std::string_view specimenRole) {
    specimen.Field<1>().SetValue("1");
    specimen.Field<4>().Component<1>().SetValue(specimenType);
    specimen.Field<11>().Component<1>().SetValue(specimenRole);
}

int ReadSpecimen(const Segment::SPM* specimen, std::string& specimenType, std::string& specimenRole) {
    if (specimen == nullptr) {
        return 0;
    }
    specimenType = specimen->Field<4>().Component<1>().GetValue();
    specimenRole = specimen->Field<11>().Component<1>().GetValue();
    return 1;
}

void FillIdentifiedSpecimen(Segment::SPM& specimen, std::string_view specimenId, std::string_view specimenType,
                            std::string_view specimenRole) {
    FillSpecimen(specimen, specimenType, specimenRole);
    specimen.Field<2>().Component<1>().Component<1>().SetValue(specimenId);
}

int ReadIdentifiedSpecimen(const Segment::SPM* specimen, std::string& specimenId, std::string& specimenType,
                           std::string& specimenRole) {
    if (ReadSpecimen(specimen, specimenType, specimenRole) == 0) {
        return 0;
    }
    specimenId = specimen->Field<2>().Component<1>().Component<1>().GetValue();
    return 1;
}

void FillContainerPlace(Segment::SAC& container, std::string_view containerId, std::string_view carrierId,
                        std::string_view position) {
    container.Field<3>().Component<1>().SetValue(containerId);
    container.Field<10>().Component<1>().SetValue(carrierId);
    container.Field<11>().Component<1>().SetValue(position);
}

int ReadContainerPlace(const Segment::SAC* container, std::string& containerId, std::string& carrierId,
                       std::string& position) {
    if (container == nullptr) {
        return 0;
    }
    containerId = container->Field<3>().Component<1>().GetValue();
    carrierId = container->Field<10>().Component<1>().GetValue();
    position = container->Field<11>().Component<1>().GetValue();
    return 1;
}

void FillQuery(Segment::QPD& query, std::string_view nameCode, std::string_view nameText, std::string_view queryTag,
               std::string_view parameter) {
    query.Field<1>().Component<1>().SetValue(nameCode);
    query.Field<1>().Component<2>().SetValue(nameText);
    query.Field<1>().Component<3>().SetValue(kCodingSystem);
    query.Field<2>().SetValue(queryTag);
    query.Field<3>().SetValue(parameter);
}

int ReadQuery(const Segment::QPD& query, std::string& nameCode, std::string& nameText, std::string& queryTag,
              std::string& parameter) {
    nameCode = query.Field<1>().Component<1>().GetValue();
    nameText = query.Field<1>().Component<2>().GetValue();
    queryTag = query.Field<2>().GetValue();
    parameter = query.Field<3>().GetValue();
    return 1;
}

void FillColumn(Segment::RDF& rowDefinition, std::string_view name, std::string_view dataType,
                std::string_view maximumWidth) {
    rowDefinition.Field<1>().SetValue("1");
    rowDefinition.Field<2>().Component<1>().SetValue(name);
    rowDefinition.Field<2>().Component<2>().SetValue(dataType);
    rowDefinition.Field<2>().Component<3>().SetValue(maximumWidth);
}

int ReadColumn(const Segment::RDF* rowDefinition, std::string& name, std::string& dataType, std::string& maximumWidth) {
    if (rowDefinition == nullptr) {
        return 0;
    }
    name = rowDefinition->Field<2>().Component<1>().GetValue();
    dataType = rowDefinition->Field<2>().Component<2>().GetValue();
    maximumWidth = rowDefinition->Field<2>().Component<3>().GetValue();
    return 1;
}

}  // namespace ZELHL7
