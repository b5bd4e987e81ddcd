#pragma once

#include <string>
#include <string_view>

#include "hl7wrap/CLabAnswerWrap.h"

namespace ZELHL7 {

/// What the analyzer makes of one order.
struct OrderAnswer {
    std::string orderControl;       ///< ORC-1: "OK" accepted, "UA" unable to accept, "CR" canceled as requested
    std::string placerOrderNumber;  ///< ORC-2.1
    std::string fillerOrderNumber;  ///< ORC-3.1
    std::string orderStatus;        ///< ORC-5: "SC" scheduled, "IP" in process, "CA" canceled
    std::string transactionTime;    ///< ORC-9.1, "YYYYMMDDhhmmss"
};

/// The analyzer's answer to a work order, ORL^O34 of profile LAB-28. A patient can only be read back together with a
/// specimen, because the message carries both as one group. The common manner of the wrappers is described at
/// COUL_R22Wrap.
class CORL_O34Wrap : public CLabAnswerWrap<HL7v251::Message::ORL_O34> {
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

    /// SPM-2.1.1, SPM-4.1 and SPM-11.1.
    void SetSpecimen(std::string_view specimenId, std::string_view specimenType, std::string_view specimenRole);
    int GetSpecimen(std::string& specimenId, std::string& specimenType, std::string& specimenRole) const;

    /// The tube and its place: SAC-3.1, SAC-10.1 and SAC-11.1.
    void SetContainer(std::string_view containerId, std::string_view carrierId, std::string_view position);
    int GetContainer(std::string& containerId, std::string& carrierId, std::string& position) const;

    /// Appends the answer to one order of the specimen.
    void AddOrder(const OrderAnswer& order);
    /// Reads the answer at `index`, counted from 0.
    int GetOrder(int index, OrderAnswer& order) const;
};

}  // namespace ZELHL7
