#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "common/CTaggedLog.h"
#include "config/ISession.h"
#include "config/ImageInfo.h"
#include "process/update/ServiceContext.h"

/// The messages of an update to ZELApp and to the PC, and how they are sent.
namespace RMUP::Process {

/// The first byte of an update status to ZELApp.
enum UpdateStatusKind : std::uint8_t {
    kNothingToUpdate = 1,  ///< alone
    kUpdateFailed = 2,     ///< code, 4 bytes little-endian; group
    kUpdateWillStart = 3,  ///< count; per image: index, length 16 little-endian, version text
    kUpdateProgress = 4,   ///< count; per image: index, percent
    kUpdateFinished = 5,   ///< alone
};

/// The two numbers by which ZELApp knows a failure.
struct UpdateError {
    std::uint32_t code;
    std::uint8_t group;
};

inline constexpr UpdateError kErrorServer{0x00204012, 0x0B};
inline constexpr UpdateError kErrorPC{0x00204013, 0x0C};
inline constexpr UpdateError kErrorMount{0x00204014, 0x0C};
inline constexpr UpdateError kErrorUSBFiles{0x00204015, 0x0C};
inline constexpr UpdateError kErrorWrite{0x00204016, 0x0C};
inline constexpr UpdateError kErrorBootPartition{0x00204017, 0x0C};
inline constexpr UpdateError kErrorPackageVersion{0x00204018, 0x0C};

/// The marked images among `order`, in that order, as "the update will start"; its count is that of all marks. Empty
/// when there is no memory for it.
[[nodiscard]] std::vector<std::uint8_t> MakeUpdateInfo(const ImageInfos& images, std::span<const ImageId> order);

/// The progress of the marked ones of the reported images.
[[nodiscard]] std::vector<std::uint8_t> MakeUpdateProgress(const ImageInfos& images);

[[nodiscard]] std::vector<std::uint8_t> MakeUpdateError(const UpdateError& error);

/// Sends ZELApp an update status with this payload.
void SendUpdateStatus(const ServiceContext& service, std::span<const std::uint8_t> payload);

/// Sends the PC a packet of the update's, with the tag 1 and the PC's peer ID. False when it could not be sent, as
/// without a session.
bool SendToPC(const ServiceContext& service, const std::shared_ptr<Net::ISession>& session, PCCommand command,
              std::span<const std::uint8_t> payload);

/// Tells the PC that its update is not possible.
void SendUpdateImpossible(const ServiceContext& service, const std::shared_ptr<Net::ISession>& session);

/// Whether another session than this is the current one, which then has updates to itself. Logs it in
/// the log of who asks.
[[nodiscard]] bool IsForeign(const ServiceContext& service, const std::shared_ptr<Net::ISession>& session,
                             const CTaggedLog& log);

}  // namespace RMUP::Process
