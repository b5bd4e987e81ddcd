#pragma once

#include "hl7/base/HL7Occurrences.h"
#include "hl7/base/HL7SegGroup.h"
#include "hl7/segment/Segments.h"

/// The segment groups, inner groups before the groups that hold them.
namespace HL7v251::Segment {

using Base::GroupOf;
using Base::HL7SegmentOp;
using Base::HL7SegmentOpRe;
using Base::HL7SegmentRe;

class G_OML_O33_PATIENT : public GroupOf<"G_OML_O33_PATIENT", PID, HL7SegmentOp<PV1>> {};
class G_OML_O33_OBSERVATION_PRIOR : public GroupOf<"G_OML_O33_OBSERVATION_PRIOR", OBX, HL7SegmentOpRe<NTE>> {};
class G_OML_O33_ORDER_PRIOR
    : public GroupOf<"G_OML_O33_ORDER_PRIOR", ORC, OBR, HL7SegmentRe<G_OML_O33_OBSERVATION_PRIOR>> {};
class G_OML_O33_PRIOR_RESULT : public GroupOf<"G_OML_O33_PRIOR_RESULT", PV1, HL7SegmentRe<G_OML_O33_ORDER_PRIOR>> {};
class G_OML_O33_OBSERVATION_REQUEST
    : public GroupOf<"G_OML_O33_OBSERVATION_REQUEST", OBR, HL7SegmentOp<TCD>, HL7SegmentOpRe<G_OML_O33_PRIOR_RESULT>> {
};
class G_OML_O33_ORDER
    : public GroupOf<"G_OML_O33_ORDER", ORC, HL7SegmentOpRe<TQ1>, HL7SegmentOp<G_OML_O33_OBSERVATION_REQUEST>> {};
class G_OML_O33_SPECIMEN
    : public GroupOf<"G_OML_O33_SPECIMEN", SPM, HL7SegmentOpRe<SAC>, HL7SegmentRe<G_OML_O33_ORDER>> {};

class G_ORL_O34_ORDER : public GroupOf<"G_ORL_O34_ORDER", ORC> {};
class G_ORL_O34_SPECIMEN
    : public GroupOf<"G_ORL_O34_SPECIMEN", SPM, HL7SegmentOpRe<SAC>, HL7SegmentOpRe<G_ORL_O34_ORDER>> {};
class G_ORL_O34_PATIENT : public GroupOf<"G_ORL_O34_PATIENT", HL7SegmentOp<PID>, HL7SegmentRe<G_ORL_O34_SPECIMEN>> {};
class G_ORL_O34_RESPONSE : public GroupOf<"G_ORL_O34_RESPONSE", HL7SegmentOp<G_ORL_O34_PATIENT>> {};

class G_OUL_R22_CONTAINER : public GroupOf<"G_OUL_R22_CONTAINER", SAC, HL7SegmentOp<INV>> {};
class G_OUL_R22_RESULT
    : public GroupOf<"G_OUL_R22_RESULT", OBX, HL7SegmentOp<TCD>, HL7SegmentOpRe<SID>, HL7SegmentOpRe<NTE>> {};
class G_OUL_R22_ORDER : public GroupOf<"G_OUL_R22_ORDER", OBR, HL7SegmentOp<ORC>, HL7SegmentOpRe<G_OUL_R22_RESULT>> {};
class G_OUL_R22_SPECIMEN : public GroupOf<"G_OUL_R22_SPECIMEN", SPM, HL7SegmentOpRe<OBX>,
                                          HL7SegmentOpRe<G_OUL_R22_CONTAINER>, HL7SegmentRe<G_OUL_R22_ORDER>> {};
// These two stand in no message.
class G_OUL_R22_VISIT : public GroupOf<"G_OUL_R22_VISIT", PV1, HL7SegmentOp<PV2>> {};
class G_OUL_R22_TIMING_QTY : public GroupOf<"G_OUL_R22_TIMING_QTY", TQ1, HL7SegmentOpRe<TQ2>> {};

class G_RTB_K13_ROW_DEFINITION : public GroupOf<"G_RTB_K13_ROW_DEFINITION", RDF, HL7SegmentOpRe<RDT>> {};

}  // namespace HL7v251::Segment
