#pragma once

#include <string>
#include <string_view>

#include "hl7wrap/CLabMessageWrap.h"

namespace ZELHL7 {

/// One ordered test or panel.
struct WorkOrder {
    std::string orderControl;       ///< ORC-1: "NW" new, "CA" cancel, "XO" change
    std::string placerOrderNumber;  ///< ORC-2.1 and OBR-2.1
    std::string transactionTime;    ///< ORC-9.1, "YYYYMMDDhhmmss"
    std::string priority;           ///< TQ1-9.1: "S" at once, "R" routine; empty: no TQ1
    std::string serviceId;          ///< OBR-4.1, a code of the analyzer
    std::string serviceText;        ///< OBR-4.2
    std::string orderingProvider;   ///< OBR-16.1
};

/// The work order for the analyzer, OML^O33 of profile LAB-28: one specimen and the tests ordered on it. The common
/// manner of the wrappers is described at COUL_R22Wrap.
class COML_O33Wrap : public CLabMessageWrap<HL7v251::Message::OML_O33> {
public:
    void SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                   std::string_view receivingApplication, std::string_view receivingFacility,
                   std::string_view messageControlId);

    /// As in COUL_R22Wrap.
    void SetPatient(std::string_view patientId, std::string_view familyName, std::string_view givenName,
                    std::string_view birthDate, std::string_view sex, std::string_view speciesCode,
                    std::string_view clientId, std::string_view speciesText);
    int GetPatient(std::string& patientId, std::string& familyName, std::string& givenName, std::string& birthDate,
                   std::string& sex, std::string& speciesCode, std::string& clientId, std::string& speciesText) const;

    /// PV1-2 and PV1-19.1.
    void SetVisit(std::string_view patientClass, std::string_view visitNumber);
    int GetVisit(std::string& patientClass, std::string& visitNumber) const;

    /// SPM-2.1.1, SPM-4.1 and SPM-11.1.
    void SetSpecimen(std::string_view specimenId, std::string_view specimenType, std::string_view specimenRole);
    int GetSpecimen(std::string& specimenId, std::string& specimenType, std::string& specimenRole) const;

    /// The tube and its place: SAC-3.1, SAC-10.1 and SAC-11.1.
    void SetContainer(std::string_view containerId, std::string_view carrierId, std::string_view position);
    int GetContainer(std::string& containerId, std::string& carrierId, std::string& position) const;

    /// Appends an order to the specimen.
    void AddOrder(const WorkOrder& order);
    /// Reads the order at `index`, counted from 0. A part of the order that the message lacks reads as empty.
    int GetOrder(int index, WorkOrder& order) const;
};

}  // namespace ZELHL7
