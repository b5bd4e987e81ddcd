#pragma once

#include <string>
#include <vector>

#include "hl7wrap/COUL_R22Wrap.h"

/// The plain values of a result, of ordinary lengths.
struct PlainResult {
    explicit PlainResult(int count) {
        for (int index = 0; index < count; ++index) {
            ZELHL7::Observation observation;
            observation.subId = "AN" + std::to_string(index);
            observation.value = std::to_string(index) + ".25";
            observation.referenceRange = "5.5-40.5";
            observation.units = "mg/dL";
            observation.analysisTime = "20230517140359";
            observation.responsibleObserver = "miller";
            observation.userDefinedChecks = "0,0,0,EMPTY,EMPTY,EMPTY,EMPTY,48Y,2.5,900.5";
            observations.push_back(observation);
        }
    }

    ZELHL7::MessageHeader header{"ORVELA", "LAB", "NULL", "NULL", "0"};
    ZELHL7::Patient patient{"P-000123", "", "", "20190304", "F", "CANINE", "W-3", "Dog"};
    ZELHL7::Specimen specimen{"SER", "P"};
    ZELHL7::Container container{"1", "2", "0", "3.1"};
    ZELHL7::Order order{"NULL", "D0815", "Comprehensive 30", "NULL"};
    ZELHL7::OrderControl control{"NULL", "NULL"};
    std::vector<ZELHL7::Observation> observations;
    ZELHL7::SubstanceLot lot{"L2309"};
};

/// Fills a result as the service does.
inline void FillResult(ZELHL7::COUL_R22Wrap& message, const PlainResult& result) {
    message.SetHeader(result.header);
    message.SetPatient(result.patient);
    message.SetSpecimen(result.specimen);
    message.SetContainer(result.container);
    message.SetInventory({});
    message.SetOrder(result.order);
    message.SetOrderControl(result.control);
    for (const ZELHL7::Observation& observation : result.observations) {
        message.AddObservation(observation);
    }
    message.SetSubstanceLot(result.lot);
}

inline void FillThirtyAnalytes(ZELHL7::COUL_R22Wrap& message) {
    FillResult(message, PlainResult(30));
}
