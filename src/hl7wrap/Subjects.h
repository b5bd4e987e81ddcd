#pragma once

#include <string>
#include <tuple>

#include "hl7wrap/Places.h"

/// What laboratory messages tell of, as plain values. Times are "YYYYMMDDhhmmss", dates "YYYYMMDD".
namespace ZELHL7 {

/// The coding system of the analyzer's own codes.
inline constexpr std::string_view kCodingSystem = "ORVELA";

/// Who sends a message to whom (MSH).
struct MessageHeader {
    std::string sendingApplication;
    std::string sendingFacility;
    std::string receivingApplication;
    std::string receivingFacility;
    std::string messageControlId;

    static constexpr std::tuple kPlaces{
        PlaceOf<3, 1>(&MessageHeader::sendingApplication),
        PlaceOf<4, 1>(&MessageHeader::sendingFacility),
        PlaceOf<5, 1>(&MessageHeader::receivingApplication),
        PlaceOf<6, 1>(&MessageHeader::receivingFacility),
        PlaceOf<10>(&MessageHeader::messageControlId),
        Always<11, 1>{"P"},
        Always<18>{"UNICODE UTF-8"},
    };
};

/// For example "OUL", "R22" and "OUL_R22" (MSH).
struct MessageType {
    std::string code;
    std::string triggerEvent;
    std::string structure;

    static constexpr std::tuple kPlaces{
        PlaceOf<9, 1>(&MessageType::code),
        PlaceOf<9, 2>(&MessageType::triggerEvent),
        PlaceOf<9, 3>(&MessageType::structure),
    };
};

/// What becomes of a message (MSA).
struct Acknowledgment {
    std::string code;              ///< "AA" accepted, "AE" error, "AR" rejected
    std::string messageControlId;  ///< of the message that is answered
    std::string text;

    static constexpr std::tuple kPlaces{
        PlaceOf<1>(&Acknowledgment::code),
        PlaceOf<2>(&Acknowledgment::messageControlId),
        PlaceOf<3>(&Acknowledgment::text),
    };
};

/// What was wrong with a message, and where (ERR).
struct MessageError {
    std::string segmentName;
    std::string segmentNumber;
    std::string fieldPosition;
    std::string errorCode;
    std::string errorText;
    std::string severity;  ///< "E", "W" or "I"

    static constexpr std::tuple kPlaces{
        PlaceOf<2, 1>(&MessageError::segmentName),   PlaceOf<2, 2>(&MessageError::segmentNumber),
        PlaceOf<2, 3>(&MessageError::fieldPosition), PlaceOf<3, 1>(&MessageError::errorCode),
        PlaceOf<3, 2>(&MessageError::errorText),     Always<3, 3>{"HL70357"},
        PlaceOf<4>(&MessageError::severity),
    };
};

/// A patient (PID). The species is written only with a code, the client only when there is one.
struct Patient {
    std::string patientId;
    std::string familyName;
    std::string givenName;
    std::string birthDate;
    std::string sex;
    std::string speciesCode;
    std::string clientId;
    std::string speciesText;

    static constexpr std::tuple kPlaces{
        PlaceOf<3, 1>(&Patient::patientId),
        PlaceOf<5, 1, 1>(&Patient::familyName),
        PlaceOf<5, 2>(&Patient::givenName),
        Always<5, 7>{"L"},
        PlaceOf<7, 1>(&Patient::birthDate),
        PlaceOf<8>(&Patient::sex),
        UnlessEmpty(&Patient::clientId, PlaceOf<21, 1>(&Patient::clientId)),
        UnlessEmpty(&Patient::speciesCode, PlaceOf<35, 1>(&Patient::speciesCode), CopyOf<35, 2>(&Patient::speciesCode),
                    Always<35, 3>{kCodingSystem}, PlaceOf<35, 5>(&Patient::speciesText)),
    };
};

/// A patient's visit (PV1).
struct Visit {
    std::string patientClass;
    std::string visitNumber;

    static constexpr std::tuple kPlaces{
        PlaceOf<2>(&Visit::patientClass),
        PlaceOf<19, 1>(&Visit::visitNumber),
    };
};

/// A specimen (SPM).
struct Specimen {
    std::string specimenType;
    std::string specimenRole;  ///< "P" of a patient, "Q" of a control

    static constexpr std::tuple kPlaces{
        Always<1>{"1"},
        PlaceOf<4, 1>(&Specimen::specimenType),
        PlaceOf<11, 1>(&Specimen::specimenRole),
    };
};

/// A specimen under the identifier that the orderer gave it (SPM).
struct OrderedSpecimen {
    std::string specimenId;
    std::string specimenType;
    std::string specimenRole;

    static constexpr std::tuple kPlaces{
        Always<1>{"1"},
        PlaceOf<2, 1, 1>(&OrderedSpecimen::specimenId),
        PlaceOf<4, 1>(&OrderedSpecimen::specimenType),
        PlaceOf<11, 1>(&OrderedSpecimen::specimenRole),
    };
};

/// What was seen of a specimen in its container, and what it was measured with (SAC).
struct Container {
    std::string hemolysisIndex;
    std::string lipemiaIndex;
    std::string icterusIndex;
    std::string reagentVersion;

    static constexpr std::tuple kIndices{
        PlaceOf<32>(&Container::hemolysisIndex),
        PlaceOf<34>(&Container::lipemiaIndex),
        PlaceOf<36>(&Container::icterusIndex),
    };
    static constexpr auto kPlaces =
        std::tuple_cat(kIndices, std::tuple{PlaceOf<43, 1>(&Container::reagentVersion), Always<43, 2>{"ReagentVersion"},
                                            Always<43, 3>{kCodingSystem}});
};

/// Which tube it is and where it stands (SAC).
struct ContainerPlace {
    std::string containerId;
    std::string carrierId;
    std::string position;

    static constexpr std::tuple kPlaces{
        PlaceOf<3, 1>(&ContainerPlace::containerId),
        PlaceOf<10, 1>(&ContainerPlace::carrierId),
        PlaceOf<11, 1>(&ContainerPlace::position),
    };
};

/// A substance that was used (INV).
struct Inventory {
    std::string substanceText;
    std::string substanceAltText;
    std::string lotNumber;
    std::string expirationDate;

    static constexpr std::tuple kPlaces{
        PlaceOf<1, 2>(&Inventory::substanceText),
        PlaceOf<1, 5>(&Inventory::substanceAltText),
        PlaceOf<12, 1>(&Inventory::expirationDate),
        PlaceOf<16>(&Inventory::lotNumber),
    };
};

/// What was ordered (OBR).
struct Order {
    std::string placerOrderNumber;
    std::string serviceId;
    std::string serviceText;
    std::string orderingProvider;

    static constexpr std::tuple kPlaces{
        PlaceOf<2, 1>(&Order::placerOrderNumber), PlaceOf<4, 1>(&Order::serviceId),
        PlaceOf<4, 2>(&Order::serviceText),       Always<4, 3>{kCodingSystem},
        PlaceOf<16, 1>(&Order::orderingProvider),
    };
};

/// How an order stands with a result (ORC).
struct OrderControl {
    std::string placerOrderNumber;
    std::string transactionTime;

    static constexpr std::tuple kPlaces{
        Always<1>{"SC"},
        PlaceOf<2, 1>(&OrderControl::placerOrderNumber),
        PlaceOf<9, 1>(&OrderControl::transactionTime),
    };
};

/// One measured analyte (OBX).
struct Observation {
    std::string observationId;  ///< OBX-3.2, and OBX-3.1 when `loincCode` is "0"
    std::string subId;
    std::string valueType;
    std::string value;
    std::string referenceRange;
    std::string units;
    std::string abnormalFlags;
    std::string analysisTime;
    std::string responsibleObserver;
    std::string equipmentId1;  ///< OBX-18, first identifier; not read back
    std::string equipmentId2;  ///< OBX-18, second identifier; not read back
    std::string userDefinedChecks;
    std::string loincCode;  ///< OBX-3.1, or "0" for the analyzer's own coding

    static constexpr std::tuple kPlaces{
        PlaceOf<2>(&Observation::valueType),
        SourceOf<3, 1>(&Observation::loincCode),
        PlaceOf<3, 2>(&Observation::observationId),
        PlaceOf<4>(&Observation::subId),
        PlaceOf<5>(&Observation::value),
        PlaceOf<6, 1>(&Observation::units),
        PlaceOf<7>(&Observation::referenceRange),
        PlaceOf<8>(&Observation::abnormalFlags),
        Always<11>{"F"},
        PlaceOf<13>(&Observation::userDefinedChecks),
        PlaceOf<16, 1>(&Observation::responsibleObserver),
        PlaceOf<19, 1>(&Observation::analysisTime),
    };
};

/// The lot of a consumed substance (SID).
struct SubstanceLot {
    std::string lotNumber;

    static constexpr std::tuple kPlaces{PlaceOf<2>(&SubstanceLot::lotNumber)};
};

/// One ordered test or panel (ORC, TQ1 and OBR).
struct WorkOrder {
    std::string orderControl;  ///< "NW" new, "CA" cancel, "XO" change
    std::string placerOrderNumber;
    std::string transactionTime;
    std::string priority;   ///< "S" at once, "R" routine; empty: no TQ1
    std::string serviceId;  ///< a code of the analyzer
    std::string serviceText;
    std::string orderingProvider;

    static constexpr std::tuple kControl{
        PlaceOf<1>(&WorkOrder::orderControl),
        PlaceOf<2, 1>(&WorkOrder::placerOrderNumber),
        PlaceOf<9, 1>(&WorkOrder::transactionTime),
    };
    static constexpr std::tuple kTiming{PlaceOf<9, 1>(&WorkOrder::priority)};
    static constexpr std::tuple kRequest{
        CopyOf<2, 1>(&WorkOrder::placerOrderNumber),  PlaceOf<4, 1>(&WorkOrder::serviceId),
        PlaceOf<4, 2>(&WorkOrder::serviceText),       Always<4, 3>{kCodingSystem},
        PlaceOf<16, 1>(&WorkOrder::orderingProvider),
    };
};

/// What the analyzer makes of one order (ORC).
struct OrderAnswer {
    std::string orderControl;  ///< "OK" accepted, "UA" unable to accept, "CR" canceled as requested
    std::string placerOrderNumber;
    std::string fillerOrderNumber;
    std::string orderStatus;  ///< "SC" scheduled, "IP" in process, "CA" canceled
    std::string transactionTime;

    static constexpr std::tuple kPlaces{
        PlaceOf<1>(&OrderAnswer::orderControl),         PlaceOf<2, 1>(&OrderAnswer::placerOrderNumber),
        PlaceOf<3, 1>(&OrderAnswer::fillerOrderNumber), PlaceOf<5>(&OrderAnswer::orderStatus),
        PlaceOf<9, 1>(&OrderAnswer::transactionTime),
    };
};

/// A query that is asked, or that an answer repeats (QPD).
struct Query {
    std::string nameCode;
    std::string nameText;
    std::string queryTag;  ///< pairs question and answer
    std::string parameter;

    static constexpr std::tuple kPlaces{
        PlaceOf<1, 1>(&Query::nameCode), PlaceOf<1, 2>(&Query::nameText), Always<1, 3>{kCodingSystem},
        PlaceOf<2>(&Query::queryTag),    PlaceOf<3>(&Query::parameter),
    };
};

/// The column of a tabular answer (RDF). A table has one column, as a row has one field.
struct Column {
    std::string name;
    std::string dataType;
    std::string maximumWidth;

    static constexpr std::tuple kPlaces{
        Always<1>{"1"},
        PlaceOf<2, 1>(&Column::name),
        PlaceOf<2, 2>(&Column::dataType),
        PlaceOf<2, 3>(&Column::maximumWidth),
    };
};

/// How to answer a query (RCP).
struct ResponseControl {
    std::string priority;  ///< "I" at once, "D" deferred
    std::string maximumRows;
    std::string modality;  ///< "R" in real time

    static constexpr std::tuple kPlaces{
        PlaceOf<1>(&ResponseControl::priority),
        PlaceOf<2, 1>(&ResponseControl::maximumRows),
        Always<2, 2, 1>{"RD"},
        PlaceOf<3, 1>(&ResponseControl::modality),
    };
};

/// What a query found (QAK).
struct QueryStatus {
    std::string queryTag;
    std::string status;  ///< "OK" found, "NF" nothing found, "AE" error
    std::string rowsFound;
    std::string rowsHere;
    std::string rowsRemaining;

    static constexpr std::tuple kPlaces{
        PlaceOf<1>(&QueryStatus::queryTag),      PlaceOf<2>(&QueryStatus::status),
        PlaceOf<4>(&QueryStatus::rowsFound),     PlaceOf<5>(&QueryStatus::rowsHere),
        PlaceOf<6>(&QueryStatus::rowsRemaining),
    };
};

}  // namespace ZELHL7
