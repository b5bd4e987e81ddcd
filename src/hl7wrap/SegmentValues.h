#pragma once

#include <string>
#include <string_view>

#include "hl7/segment/Segments.h"

/// What several messages write into the same segments. `Fill` writes plain values into a segment; `Read` reads the same
/// fields back and returns 1, or returns 0 and leaves the outputs alone when there is no segment (null).
namespace ZELHL7 {

namespace Segment = HL7v251::Segment;

/// The coding system of the analyzer's own codes.
inline constexpr std::string_view kCodingSystem = "ORVELA";

/// Which acknowledgements the sender of a message expects (MSH-15 and MSH-16).
enum class Acknowledge {
    kByApplication,  ///< of a message that asks or reports: an accept acknowledgement on error, an answer always
    kNever,          ///< of an answer
};

void FillHeader(Segment::MSH& header, Acknowledge acknowledge, std::string_view sendingApplication,
                std::string_view sendingFacility, std::string_view receivingApplication,
                std::string_view receivingFacility, std::string_view messageControlId);
/// Declares the laboratory profile that the message follows (MSH-21).
void FillProfile(Segment::MSH& header, std::string_view profile);
int ReadHeader(const Segment::MSH& header, std::string& sendingApplication, std::string& sendingFacility,
               std::string& receivingApplication, std::string& receivingFacility, std::string& messageControlId);

int ReadMessageType(const Segment::MSH& header, std::string& code, std::string& triggerEvent, std::string& structure);

/// Whether a header that was read may begin a message whose new header is `own`: where both name a message code, a
/// trigger event or a structure (MSH-9), it is the same.
[[nodiscard]] bool IsHeaderOf(const Segment::MSH& own, const Segment::MSH& read);

void FillAcknowledgment(Segment::MSA& acknowledgment, std::string_view code, std::string_view messageControlId,
                        std::string_view text);
int ReadAcknowledgment(const Segment::MSA& acknowledgment, std::string& code, std::string& messageControlId,
                       std::string& text);

void FillError(Segment::ERR& error, std::string_view segmentName, std::string_view segmentNumber,
               std::string_view fieldPosition, std::string_view errorCode, std::string_view errorText,
               std::string_view severity);
int ReadError(const Segment::ERR* error, std::string& segmentName, std::string& segmentNumber,
              std::string& fieldPosition, std::string& errorCode, std::string& errorText, std::string& severity);

/// An empty `speciesCode` leaves PID-35 untouched, whatever `speciesText` is; an empty `clientId` PID-21.
void FillPatient(Segment::PID& patient, std::string_view patientId, std::string_view familyName,
                 std::string_view givenName, std::string_view birthDate, std::string_view sex,
                 std::string_view speciesCode, std::string_view clientId, std::string_view speciesText);
int ReadPatient(const Segment::PID* patient, std::string& patientId, std::string& familyName, std::string& givenName,
                std::string& birthDate, std::string& sex, std::string& speciesCode, std::string& clientId,
                std::string& speciesText);

/// SPM-1 is always "1".
void FillSpecimen(Segment::SPM& specimen, std::string_view specimenType, std::string_view specimenRole);
int ReadSpecimen(const Segment::SPM* specimen, std::string& specimenType, std::string& specimenRole);

/// The specimen under the identifier that the orderer gave it (SPM-2.1.1).
void FillIdentifiedSpecimen(Segment::SPM& specimen, std::string_view specimenId, std::string_view specimenType,
                            std::string_view specimenRole);
int ReadIdentifiedSpecimen(const Segment::SPM* specimen, std::string& specimenId, std::string& specimenType,
                           std::string& specimenRole);

/// Which tube it is (SAC-3.1) and where it stands: carrier (SAC-10.1) and position in it (SAC-11.1).
void FillContainerPlace(Segment::SAC& container, std::string_view containerId, std::string_view carrierId,
                        std::string_view position);
int ReadContainerPlace(const Segment::SAC* container, std::string& containerId, std::string& carrierId,
                       std::string& position);

/// The query that is asked, or that an answer repeats: its name (QPD-1.1, QPD-1.2), the tag that pairs question and
/// answer (QPD-2) and its one parameter (QPD-3).
void FillQuery(Segment::QPD& query, std::string_view nameCode, std::string_view nameText, std::string_view queryTag,
               std::string_view parameter);
int ReadQuery(const Segment::QPD& query, std::string& nameCode, std::string& nameText, std::string& queryTag,
              std::string& parameter);

/// The column of a tabular answer (RDF-2: name, data type, width). A table has one column, as a row has one field.
void FillColumn(Segment::RDF& rowDefinition, std::string_view name, std::string_view dataType,
                std::string_view maximumWidth);
int ReadColumn(const Segment::RDF* rowDefinition, std::string& name, std::string& dataType, std::string& maximumWidth);

}  // namespace ZELHL7
