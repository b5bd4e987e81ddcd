#include <climits>
#include <functional>
#include <tuple>
#include <vector>

#include "fuzz/HL7Text.h"
#include "hl7wrap/CACKWrap.h"
#include "hl7wrap/COML_O33Wrap.h"
#include "hl7wrap/CORL_O34Wrap.h"
#include "hl7wrap/COUL_R22Wrap.h"
#include "hl7wrap/CQBP_Q13Wrap.h"
#include "hl7wrap/CRTB_K13Wrap.h"

using namespace ZELHL7;
using Fuzz::Require;

namespace {

using Values = std::vector<std::string>;

/// Appends the texts that a getter gives.
template <class Wrap, class Base, class... Texts>
void Get(const Wrap& wrap, Values& values, int (Base::*getter)(Texts&...) const) {
    std::tuple<Texts...> texts;
    const int result = std::apply([&](auto&... text) { return (wrap.*getter)(text...); }, texts);
    Require(result == 0 || result == 1, "a getter tells whether its part is there");
    std::apply([&](auto&... text) { values.insert(values.end(), {text...}); }, texts);
}

/// Appends what a getter of occurrences gives, up to the first that is not there.
template <class Wrap, class Base, class Value, class... Members>
void GetEach(const Wrap& wrap, Values& values, int (Base::*getter)(int, Value&) const, Members... members) {
    Value value;
    Require((wrap.*getter)(-1, value) == 0 && (wrap.*getter)(INT_MAX, value) == 0, "nothing is there outside");
    for (int index = 0; (wrap.*getter)(index, value) == 1; ++index) {
        values.insert(values.end(), {std::invoke(members, value)...});
    }
}

template <class Wrap>
void GetAll(const Wrap& wrap, Values& values, auto... getters) {
    Get(wrap, values, &Wrap::GetHeader);
    (Get(wrap, values, getters), ...);
}

void Read(const CACKWrap& wrap, Values& values) {
    using W = CACKWrap;
    GetAll(wrap, values, &W::GetAcknowledgment, &W::GetError, &W::GetMessageType);
}

void Read(const COUL_R22Wrap& wrap, Values& values) {
    using W = COUL_R22Wrap;
    using O = Observation;
    GetAll(wrap, values, &W::GetPatient, &W::GetSpecimen, &W::GetContainer, &W::GetInventory, &W::GetOrder,
           &W::GetOrderControl, &W::GetSubstanceLot);
    GetEach(wrap, values, &W::GetObservation, &O::observationId, &O::subId, &O::valueType, &O::value,
            &O::referenceRange, &O::units, &O::abnormalFlags, &O::analysisTime, &O::responsibleObserver,
            &O::userDefinedChecks, &O::loincCode);
}

void Read(const COML_O33Wrap& wrap, Values& values) {
    using W = COML_O33Wrap;
    using O = WorkOrder;
    GetAll(wrap, values, &W::GetPatient, &W::GetVisit, &W::GetSpecimen, &W::GetContainer);
    GetEach(wrap, values, &W::GetOrder, &O::orderControl, &O::placerOrderNumber, &O::transactionTime, &O::priority,
            &O::serviceId, &O::serviceText, &O::orderingProvider);
}

void Read(const CORL_O34Wrap& wrap, Values& values) {
    using W = CORL_O34Wrap;
    using O = OrderAnswer;
    GetAll(wrap, values, &W::GetAcknowledgment, &W::GetError, &W::GetPatient, &W::GetSpecimen, &W::GetContainer);
    GetEach(wrap, values, &W::GetOrder, &O::orderControl, &O::placerOrderNumber, &O::fillerOrderNumber, &O::orderStatus,
            &O::transactionTime);
}

void Read(const CQBP_Q13Wrap& wrap, Values& values) {
    using W = CQBP_Q13Wrap;
    GetAll(wrap, values, &W::GetQuery, &W::GetColumn, &W::GetResponseControl);
}

void Read(const CRTB_K13Wrap& wrap, Values& values) {
    using W = CRTB_K13Wrap;
    GetAll(wrap, values, &W::GetAcknowledgment, &W::GetError, &W::GetQueryStatus, &W::GetQuery, &W::GetColumn);
    GetEach(wrap, values, &W::GetRow, std::identity());
}

template <class Wrap>
void Decode(std::string_view text) {
    Wrap wrap;
    const int result = wrap.Decode(text);
    Require(result >= -1 && result <= 1, "decoding ends with a result");
    Values values;
    Read(wrap, values);
    Require(values.size() <= 12 * text.size() + 64, "values come from the text");
    std::string written;
    wrap.GetMessageText(written);
    Wrap again;
    Require(again.Decode(written) != 0, "a message that was written begins with its header");
    Values valuesAgain;
    Read(again, valuesAgain);
    Require(result != 1 || valuesAgain == values, "a message that was written holds the same values");
}

constexpr void (*kDecoders[])(std::string_view) = {&Decode<CACKWrap>,     &Decode<COML_O33Wrap>, &Decode<CORL_O34Wrap>,
                                                   &Decode<COUL_R22Wrap>, &Decode<CQBP_Q13Wrap>, &Decode<CRTB_K13Wrap>};

}  // namespace

/// An HL7 text, read through the getters of the wrapper that the first byte chooses.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return Fuzz::DecodeChosen(kDecoders, data, size);
}
