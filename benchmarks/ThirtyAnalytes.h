#pragma once

#include <string>

#include "hl7wrap/COUL_R22Wrap.h"

/// Fills a result as the service does, the values of ordinary lengths.
inline void FillAnalytes(ZELHL7::COUL_R22Wrap& message, int count) {
    message.SetHeader("ORVELA", "LAB", "NULL", "NULL", "0");
    message.SetPatient("P-000123", "", "", "20190304", "F", "CANINE", "W-3", "Dog");
    message.SetSpecimen("SER", "P");
    message.SetContainer("1", "2", "0", "3.1");
    message.SetInventory("", "", "", "");
    message.SetOrder("NULL", "D0815", "Comprehensive 30", "NULL");
    message.SetOrderControl("NULL", "NULL");
    for (int index = 0; index < count; ++index) {
        ZELHL7::Observation observation;
        observation.subId = "AN" + std::to_string(index);
        observation.value = std::to_string(index) + ".25";
        observation.referenceRange = "5.5-40.5";
        observation.units = "mg/dL";
        observation.analysisTime = "20230517140359";
        observation.responsibleObserver = "miller";
        observation.userDefinedChecks = "0,0,0,EMPTY,EMPTY,EMPTY,EMPTY,48Y,2.5,900.5";
        message.AddObservation(observation);
    }
    message.SetSubstanceLot("L2309");
}

inline void FillThirtyAnalytes(ZELHL7::COUL_R22Wrap& message) {
    FillAnalytes(message, 30);
}
