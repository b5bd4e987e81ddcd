#include <gtest/gtest.h>
#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "hl7wrap/COUL_R22Wrap.h"

namespace {

// Bytes on the heap, with what the allocator keeps beside each block.
constexpr std::size_t kBlockOverhead = 8;
std::atomic<std::size_t> live{0};
std::atomic<std::size_t> peak{0};
std::atomic<std::size_t> blocks{0};

}  // namespace

void* operator new(std::size_t size) {
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    const std::size_t now = live += malloc_usable_size(memory) + kBlockOverhead;
    peak = std::max(peak.load(), now);
    ++blocks;
    return memory;
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) {
        live -= malloc_usable_size(memory) + kBlockOverhead;
        std::free(memory);
    }
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace {

using namespace HL7v251::Message;

TEST(Memory, EmptyPartsTakeNone) {
    const std::size_t before = blocks;
    OBX result;
    CX id;
    G_OUL_R22_SPECIMEN specimen;
    const SAC container;
    EXPECT_EQ(container.Field<44>().Component<1>().GetValue(), "");
    std::string_view text("SAC||||||||\r");
    SAC decoded;
    EXPECT_EQ(decoded.DecodeFrom(text), 1);
    EXPECT_EQ(blocks, before);
}

TEST(Memory, ThirtyAnalytesStayBelow200Kilobytes) {
    const std::size_t before = live;
    ZELHL7::COUL_R22Wrap message;
    message.SetHeader("ORVELA", "LAB", "NULL", "NULL", "0");
    message.SetPatient("P-000123", "Family", "Given", "20010203", "F", "DOG", "C-1", "Canine");
    message.SetSpecimen("BLD", "P");
    message.SetContainer("1", "2", "3", "1.02.03");
    message.SetInventory("material", "level", "lot", "20301231");
    message.SetOrder("NULL", "SN123456", "Panel", "NULL");
    message.SetOrderControl("NULL", "NULL");
    const std::string text(40, 'x');
    for (int index = 0; index < 30; ++index) {
        message.AddObservation({text, text, text, text, text, text, text, text, text, text, text, text, text});
    }
    message.SetSubstanceLot("L-9");
    EXPECT_LT(live - before, 200U * 1024U);
}

// The lines that cost most for their length: many small groups, many small segments, many values of one character.
TEST(Memory, HostileTextGrowsByASmallFactor) {
    std::string values = "SAC";
    for (int field = 0; field < 44; ++field) {
        values += "|1";
    }
    const std::string lines[] = {"OBX\r",          "OBX|1\r",
                                 "SID|1\r",        "NTE|\r",
                                 "SPM\rOBR\r",     "SPM||1\rOBR||1\r",
                                 values + "\r",    "SAC|1|1|1|1|1\r",
                                 "SAC||||||1&1\r", "OBX|^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^^\r"};
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        std::string text = "MSH|^~\\&\rSPM\r";
        // Results and their parts come behind an order, containers and specimens before it.
        if (!line.starts_with("SAC") && !line.starts_with("SPM")) {
            text += "OBR\rOBX\r";
        }
        while (text.size() < 300'000) {
            text += line;
        }
        testing::internal::CaptureStderr();
        const std::size_t before = live;
        peak = before;
        std::size_t used = 0;
        {
            OUL_R22 message;
            std::string_view rest(text);
            EXPECT_EQ(message.DecodeFrom(rest), 1);
            used = peak - before;
        }
        testing::internal::GetCapturedStderr();
        EXPECT_GT(used, 0U);
        EXPECT_LT(used, 50 * text.size());
    }
}

}  // namespace
