#pragma once

#include "hl7/base/HL7Message.h"
#include "hl7/segment/Groups.h"

/// The messages. Their structures are much smaller than the standard's: what an analyzer and a PC have to tell each
/// other; the service itself sends OUL_R22. A new message carries its delimiters, type, processing ID and version in
/// its header, an ACK only delimiters and version. Constructors and destructors are not inline: whole trees hang on
/// them, which each user of a message would compile again.
namespace HL7v251::Message {

using namespace Segment;
using Base::MessageOf;

class ACK : public MessageOf<MSH, MSA, HL7SegmentOp<ERR>> {
public:
    ACK();
    ACK(ACK&&) noexcept;
    ~ACK() override;
};

class OML_O33 : public MessageOf<MSH, HL7SegmentOp<G_OML_O33_PATIENT>, HL7SegmentRe<G_OML_O33_SPECIMEN>> {
public:
    OML_O33();
    OML_O33(OML_O33&&) noexcept;
    ~OML_O33() override;
};

class ORL_O34 : public MessageOf<MSH, MSA, HL7SegmentOpRe<ERR>, HL7SegmentOp<G_ORL_O34_RESPONSE>> {
public:
    ORL_O34();
    ORL_O34(ORL_O34&&) noexcept;
    ~ORL_O34() override;
};

class OUL_R22 : public MessageOf<MSH, HL7SegmentOp<PID>, HL7SegmentOp<PV1>, HL7SegmentRe<G_OUL_R22_SPECIMEN>> {
public:
    OUL_R22();
    OUL_R22(OUL_R22&&) noexcept;
    ~OUL_R22() override;
};

class QBP_Q11 : public MessageOf<MSH, HL7SegmentOpRe<SFT>, QPD, RCP> {
public:
    QBP_Q11();
    QBP_Q11(QBP_Q11&&) noexcept;
    ~QBP_Q11() override;
};

class QBP_Q13 : public MessageOf<MSH, HL7SegmentOp<SFT>, QPD, HL7SegmentOp<RDF>, RCP> {
public:
    QBP_Q13();
    QBP_Q13(QBP_Q13&&) noexcept;
    ~QBP_Q13() override;
};

class RSP_K11 : public MessageOf<MSH, HL7SegmentOpRe<SFT>, MSA, HL7SegmentOp<ERR>, QAK, QPD> {
public:
    RSP_K11();
    RSP_K11(RSP_K11&&) noexcept;
    ~RSP_K11() override;
};

class RTB_K13 : public MessageOf<MSH, MSA, HL7SegmentOp<ERR>, QAK, QPD, HL7SegmentOp<G_RTB_K13_ROW_DEFINITION>> {
public:
    RTB_K13();
    RTB_K13(RTB_K13&&) noexcept;
    ~RTB_K13() override;
};

}  // namespace HL7v251::Message
