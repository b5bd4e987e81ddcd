#pragma once

#include <string>
#include <string_view>

#include "hl7wrap/CLabMessageWrap.h"

namespace ZELHL7 {

/// One measured analyte, as it goes into the OBX segment of a result group.
struct Observation {
    std::string observationId;        ///< OBX-3.2, and OBX-3.1 when `loincCode` is "0"
    std::string subId;                ///< OBX-4
    std::string valueType;            ///< OBX-2
    std::string value;                ///< OBX-5
    std::string referenceRange;       ///< OBX-7
    std::string units;                ///< OBX-6.1
    std::string abnormalFlags;        ///< OBX-8
    std::string analysisTime;         ///< OBX-19.1, "YYYYMMDDhhmmss"
    std::string responsibleObserver;  ///< OBX-16.1
    std::string equipmentId1;         ///< OBX-18, first identifier; not read back
    std::string equipmentId2;         ///< OBX-18, second identifier; not read back
    std::string userDefinedChecks;    ///< OBX-13
    std::string loincCode;            ///< OBX-3.1, or "0" for the analyzer's own coding
};

/// The unsolicited laboratory result, OUL^R22 of profile LAB-29. Setters make the first occurrence of what they reach
/// when it is absent and always write into that one; getters return 0 and leave their outputs alone when it is absent,
/// else 1. Values are written as they stand: none may hold a delimiter of the encoding.
class COUL_R22Wrap : public CLabMessageWrap<HL7v251::Message::OUL_R22> {
public:
    void SetHeader(std::string_view sendingApplication, std::string_view sendingFacility,
                   std::string_view receivingApplication, std::string_view receivingFacility,
                   std::string_view messageControlId);

    /// An empty `speciesCode` leaves PID-35 untouched, whatever `speciesText` is; an empty `clientId` PID-21.
    void SetPatient(std::string_view patientId, std::string_view familyName, std::string_view givenName,
                    std::string_view birthDate, std::string_view sex, std::string_view speciesCode,
                    std::string_view clientId, std::string_view speciesText);
    int GetPatient(std::string& patientId, std::string& familyName, std::string& givenName, std::string& birthDate,
                   std::string& sex, std::string& speciesCode, std::string& clientId, std::string& speciesText) const;

    void SetSpecimen(std::string_view specimenType, std::string_view specimenRole);
    /// The specimen is whole blood, "BLD".
    void SetSpecimen(std::string_view specimenRole);
    int GetSpecimen(std::string& specimenType, std::string& specimenRole) const;

    void SetContainer(std::string_view hemolysisIndex, std::string_view lipemiaIndex, std::string_view icterusIndex,
                      std::string_view reagentVersion);
    /// Leaves the reagent version as it is.
    void SetContainer(std::string_view hemolysisIndex, std::string_view lipemiaIndex, std::string_view icterusIndex);
    int GetContainer(std::string& hemolysisIndex, std::string& lipemiaIndex, std::string& icterusIndex,
                     std::string& reagentVersion) const;

    void SetInventory(std::string_view substanceText, std::string_view substanceAltText, std::string_view lotNumber,
                      std::string_view expirationDate);
    int GetInventory(std::string& substanceText, std::string& substanceAltText, std::string& lotNumber,
                     std::string& expirationDate) const;

    void SetOrder(std::string_view placerOrderNumber, std::string_view serviceId, std::string_view serviceText,
                  std::string_view orderingProvider);
    int GetOrder(std::string& placerOrderNumber, std::string& serviceId, std::string& serviceText,
                 std::string& orderingProvider) const;

    void SetOrderControl(std::string_view placerOrderNumber, std::string_view transactionTime);
    int GetOrderControl(std::string& placerOrderNumber, std::string& transactionTime) const;

    /// Appends a result group; OBX-1 counts them from 1.
    void AddObservation(const Observation& observation);
    /// Reads the result group at `index`, counted from 0. `loincCode` receives OBX-3.1 and `observationId` OBX-3.2 as
    /// they stand; the equipment identifiers are left alone.
    int GetObservation(int index, Observation& observation) const;

    /// The lot of the consumed substance, on the first result group.
    void SetSubstanceLot(std::string_view lotNumber);
    int GetSubstanceLot(std::string& lotNumber) const;
};

}  // namespace ZELHL7
