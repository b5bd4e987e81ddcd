#include <fcntl.h>
#include <gtest/gtest.h>

#include "common/CDescriptor.h"

// Faults: a descriptor closed twice or never when it changes its owner, an error number lost by closing.
TEST(DescriptorTest, HasOneOwnerAndLeavesErrnoAlone) {
    const auto isOpen = [](int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; };
    const int first = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int second = open("/dev/null", O_RDONLY | O_CLOEXEC);
    {
        CDescriptor owner(first);
        CDescriptor other(second);
        owner = std::move(other);
        EXPECT_FALSE(isOpen(first));
        CDescriptor& itself = owner;
        owner = std::move(itself);
        EXPECT_EQ(owner.Get(), second);
        const CDescriptor last(std::move(owner));
        EXPECT_TRUE(isOpen(second));
        errno = ENOSPC;
    }
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_FALSE(isOpen(second));

    errno = ENOSPC;
    CDescriptor(second).Reset();  // fails to close
    EXPECT_EQ(errno, ENOSPC);
}
