#pragma once

#include "hl7/base/HL7Segment.h"
#include "hl7/composite/Composites.h"

/// The segments, each with its fields in order. Several stop short of the standard's last field; what a text holds
/// beyond is neither read nor written. Those that stand in no message are there for a message of the library's user.
namespace HL7v251::Segment {

using namespace Composite;
using Base::SegmentOf;

class AL1 final : public SegmentOf<"AL1", SI, CE, CE, CE, ST, DT> {};
class BLG final : public SegmentOf<"BLG", CM_CCD, ID, CX> {};
class CTI final : public SegmentOf<"CTI", EI, CE, CE> {};
class DG1 final : public SegmentOf<"DG1", SI, ID, CE, ST, TS, IS, CE, CE, ID, IS, CE, NM, CP, ST, ID, XCN, IS, ID, TS> {
};
class ERR final : public SegmentOf<"ERR", CM_ELD, CM_ERL, CWE, ID> {};
class FT1 final : public SegmentOf<"FT1", SI, ST, ST, DR, TS, IS, CE, ST, ST, NM, CP, CP, CE, CE, CP, PL, IS, IS, CE,
                                   XCN, XCN, CP, EI, XCN, CE, CE> {};
class GT1 final : public SegmentOf<"GT1", SI, CX, XPN, XPN, XAD, XTN, XTN, TS, IS, IS, CE, ST, DT, DT, NM, XPN, XAD,
                                   XTN, CX, IS, XON, ID, CE, TS, ID, CE, CP, NM, CX, CE, DT, DT, IS, IS, CE, CE, IS, CE,
                                   ID, IS, CE, XPN, CE, CE, XPN, XTN, CE, IS, ST, JCC, XON, IS, IS, FC, CE> {};
class IN1 final : public SegmentOf<"IN1", SI, CE, CX, XON, XAD, XPN, XTN, ST, XON, CX, XON, DT, DT, CM_AUI, IS, XPN, CE,
                                   TS, XAD, IS, IS, ST, ID, DT, ID, DT, IS, ST, TS, XCN, IS, IS, NM, NM, IS, ST, CP, CP,
                                   NM, CP, CP, CE, IS, XAD, ST, IS, IS, IS, CX> {};
class IN2 final : public SegmentOf<"IN2", CX, ST, XCN, IS, IS, ST, XPN, ST, XPN, ST, CE, ST, ST, IS, IS, IS, DT, ID, ID,
                                   ID, ST, XPN, ST, IS, CX, CX, IS, CM_RMC, CM_PTA, CM_DDI, IS, IS, CE, CE, IS, CE, ID,
                                   IS, CE, XPN, CE, CE, CE, DT, DT, ST, JCC, IS, XPN, XTN, IS, XPN, XTN, IS, DT, DT, IS,
                                   XTN, IS, IS, CX, CE, XTN, XTN, CE, ID, ID, ID, XON, XON, CE, CE> {};
class IN3 final : public SegmentOf<"IN3", SI, CX, XCN, ID, CM_PEN, TS, TS, XCN, DT, DT, CM_DTN, CE, TS, XCN, ST, XTN,
                                   CE, CE, XTN, CM_PCF, ST, DT, IS, IS, XCN> {};
class INV final
    : public SegmentOf<"INV", CE, CE, CE, CE, CE, CE, NM, NM, NM, NM, CE, TS, TS, TQ, CE, ST, CE, CE, CQ, CQ> {};
class MSA final : public SegmentOf<"MSA", ID, ST, ST, NM, ID, CE> {};
class MSH final
    : public SegmentOf<"MSH", ST, ST, HD, HD, HD, HD, TS, ST, CM_MSG, ST, PT, VID, NM, ST, ID, ID, ID, ID, CE, ID, EI> {
};
class NTE final : public SegmentOf<"NTE", SI, ID, FT, CE> {};
class OBR final : public SegmentOf<"OBR", SI, EI, EI, CE, ID, TS, TS, TS, CQ, XCN, ID, CE, ST, TS, CM_SPS, XCN, XTN, ST,
                                   ST, ST, ST, TS, CM_MOC, ID, ID, CM_PRL, TQ, XCN, CM_EIP, ID, CE, CM_NDL, CM_NDL,
                                   CM_NDL, CM_NDL, TS, NM, CE, CE, CE, ID, ID, CE, CE, CE, CE, CE> {};
class OBX final
    : public SegmentOf<"OBX", SI, ID, CE, ST, varies, CE, ST, IS, NM, ID, ID, TS, ST, TS, CE, XCN, CE, EI, TS> {};
class ORC final : public SegmentOf<"ORC", ID, EI, EI, EI, ID, ID, TQ, CM_EIP, TS, XCN, XCN, XCN, PL, XTN, TS, CE, CE,
                                   CE, XCN, CE, XON, XAD, XTN, XAD, CWE> {};
class PD1 final
    : public SegmentOf<"PD1", IS, IS, XON, XCN, IS, IS, IS, IS, ID, CX, CE, ID, DT, XON, CE, IS, DT, DT, IS, IS, IS> {};
class PID final : public SegmentOf<"PID", SI, CX, CX, CX, XPN, XPN, TS, IS, XPN, CE, XAD, IS, XTN, XTN, CE, CE, CE, CX,
                                   ST, DLN, CX, CE, ST, ID, NM, CE, CE, CE, TS, ID, ID, IS, TS, HD, CE, CE, ST, CE> {};
class PV1 final : public SegmentOf<"PV1", SI, IS, PL, IS, CX, PL, XCN, XCN, XCN, IS, PL, IS, IS, IS, IS, IS, XCN, IS,
                                   CX, FC, IS, IS, IS, IS, DT, NM, NM, IS, IS, DT, IS, NM, NM, IS, DT, IS, CM_DLD, CE,
                                   IS, IS, IS, PL, PL, TS, TS, NM, NM, NM, NM, CX, IS, XCN> {};
class PV2 final : public SegmentOf<"PV2", PL, CE, CE, CE, ST, ST, IS, TS, TS, NM, NM, ST, XCN, DT, ID, IS, DT, IS, ID,
                                   NM, IS, ID, XON, IS, IS, DT, IS, DT, DT, CE, IS, ID, TS, ID, ID, ID, ID, CE, CE, CE,
                                   CE, CE, IS, IS, CE, DT, TS> {};
class QAK final : public SegmentOf<"QAK", ST, ID, CE, NM, NM, NM> {};
class QPD final : public SegmentOf<"QPD", CE, ST, ST> {};
class RCP final : public SegmentOf<"RCP", ID, CQ, CE, TS, ID, SRT, ID> {};
class RDF final : public SegmentOf<"RDF", NM, RCD> {};
class RDT final : public SegmentOf<"RDT", varies> {};
class SAC final
    : public SegmentOf<"SAC", EI, EI, EI, EI, EI, CM_SPS, TS, CE, CE, EI, NA, CE, EI, NA, CE, NM, NM, NM, NM, CE, NM,
                       NM, NM, CE, CE, CE, CE, CE, SN, CE, SN, NM, CE, NM, CE, NM, CE, NM, CE, CE, CE, CE, CE, CE> {};
class SFT final : public SegmentOf<"SFT", XON, ST, ST, ST, TX, TS> {};
class SID final : public SegmentOf<"SID", CE, ST, ST, CE> {};
class SPM final : public SegmentOf<"SPM", SI, EIP, EIP, CWE, CWE, CWE, CWE, CWE, CWE, CWE, CWE, CQ, NM, ST, CWE, CWE,
                                   DR, TS, TS, ID, CWE, CWE, CWE, CWE, CQ, NM, CWE, CWE, CWE> {};
class TCD final : public SegmentOf<"TCD", CE, SN, SN, SN, SN, ID, ID, CE> {};
class TQ1 final : public SegmentOf<"TQ1", SI, CQ, RPT, TM, CQ, CQ, TS, TS, CWE, TX, TX, ID, CQ, NM> {};
class TQ2 final : public SegmentOf<"TQ2", SI, ID, EI, EI, EI, ID, ID, CQ, NM, ID> {};

}  // namespace HL7v251::Segment
