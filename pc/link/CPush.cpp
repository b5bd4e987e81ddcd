#include "link/CPush.h"

#include <algorithm>
#include <fstream>
#include <optional>

#include "link/LinkError.h"
#include "link/NoThrow.h"
#include "packet/Requests.h"
#include "wire/Bytes.h"
#include "wire/PCCommand.h"

namespace ZELPC {

namespace asio = boost::asio;
using namespace std::chrono_literals;

namespace {

constexpr std::size_t kMostWaiting = 16;
constexpr std::chrono::milliseconds kReportPause = 100ms;

/// The analyzer's operator is asked meanwhile.
constexpr std::chrono::minutes kOfferPatience = 10min;
/// The analyzer writes the image to its disk and takes a package apart.
constexpr std::chrono::minutes kStorePatience = 2min;
constexpr std::chrono::minutes kInstallPatience = 30min;
constexpr std::chrono::seconds kLookPause = 2s;

std::optional<std::string> InstalledVersion(const DeviceInfo& info, ImageId image) {
    switch (image) {
        case ImageId::kSYS:
            return info.sysVersion;
        case ImageId::kApp:
            return info.appVersion;
        case ImageId::kDSP:
            return info.dspVersion;
        default:
            return info.xmlVersion;
    }
}

/// Whether an analyzer has the versions of these images, as far as it tells them: it does not tell that of DSP.
bool HasInstalled(const DeviceInfo& info, const CRelease& release, const auto& images) {
    return std::ranges::all_of(images, [&](const auto& image) {
        const std::string installed = InstalledVersion(info, image.first).value_or("");
        return installed.empty() || SameVersion(installed, release.Files().at(image.first).version);
    });
}

}  // namespace

CPush::CPush(const Strand& strand, std::shared_ptr<const CRelease> release, PushMethod method, Report report)
    : release_(std::move(release)), method_(method), report_(std::move(report)), wake_(strand) {}

asio::awaitable<PushProgress> CPush::Run(std::shared_ptr<CLinkSession> session) {
    const auto self = shared_from_this();
    session_ = std::move(session);
    bool callOff = false;
    try {
        if (method_ == PushMethod::kOffer) {
            const auto before = co_await AskState();
            looksInstalled_ = before && HasInstalled(*before, *release_, release_->Files());
            co_await Offer();
        } else {
            co_await ServeRequests();
        }
        co_await FollowInstallation();
    } catch (const End& end) {
        progress_.reason = end.reason;
        progress_.step = end.step;
        callOff = end.tellAnalyzer;
    } catch (const LinkError& error) {
        progress_.reason = error.what();
        progress_.step = PushStep::kFailed;
    }
    if (callOff && session_ != nullptr) {
        session_->Send(ErrorNotice(1, session_->PeerID(), kFirstCancel));
        co_await session_->Flush();
    }
    report_(progress_);
    co_return progress_;
}

void CPush::Take(const Packet& packet) {
    // More than an analyzer ever says at once is not listened to.
    if (inbox_.size() < kMostWaiting) {
        inbox_.push_back(packet);
        wake_.cancel();
    }
}

void CPush::TakeSession(std::shared_ptr<CLinkSession> session) {
    session_ = std::move(session);
    wake_.cancel();
}

void CPush::Cancel() {
    cancelled_ = true;
    wake_.cancel();
}

void CPush::Fail(const std::string& reason) {
    failure_ = reason;
    wake_.cancel();
}

asio::awaitable<void> CPush::Offer() {
    std::uint8_t mask = 0;
    for (const auto& [image, file] : release_->Files()) {
        mask |= static_cast<std::uint8_t>(Wire::RowOf(image).offerBit);
    }
    Tell(PushStep::kWaiting);
    session_->Send(
        {.command = PCCommand::kUpdateStart, .tag = 1, .subTag = static_cast<std::uint8_t>(session_->PeerID())},
        std::span(&mask, 1));
    (void)co_await Expect(PCCommand::kUpdateAccept, kOfferPatience, "nobody at the analyzer took the update");
    for (const ImageId image : kSent) {
        if (release_->Files().contains(image)) {
            progress_.images[image].size = release_->Files().at(image).FileSize();
        }
    }
    for (const ImageId image : kSent) {
        if (release_->Files().contains(image)) {
            co_await SendImage(image);
        }
    }
}

asio::awaitable<void> CPush::ServeRequests() {
    if (!release_->Files().contains(ImageId::kSYS)) {
        throw End{PushStep::kFailed, "an analyzer that asks wants SYS, APP and XML", false};
    }
    Tell(PushStep::kWaiting);
    (void)co_await Expect(PCCommand::kGetInfo, Clock::duration::max(), "");
    SendVersions();
    while (progress_.images.size() < 3) {
        const auto packet = co_await Next(kLookPause);
        if (!packet) {
            co_await CheckStillUpdating();
        } else if (packet->header.command == PCCommand::kGetInfo) {
            SendVersions();
        } else if (packet->header.command == PCCommand::kErrorNotice) {
            throw End{PushStep::kFailed, "the analyzer does not take the update", false};
        } else if (packet->header.command == PCCommand::kImageRequest) {
            co_await SendRequested(*packet);
        }
    }
}

asio::awaitable<void> CPush::CheckStillUpdating() {
    const auto info = co_await AskState();
    if (info && info->activity != static_cast<std::uint8_t>(Activity::kUpdating)) {
        if (progress_.images.empty()) {
            throw End{PushStep::kNotNeeded, "the analyzer has these versions or newer ones", false};
        }
        throw End{PushStep::kFailed, "the analyzer gave the update up", false};
    }
}

void CPush::SendVersions() {
    // Without DSP: an analyzer never asks for it, but would take it for something to be done.
    std::map<ImageId, std::string> versions;
    for (const ImageId image : Wire::kReleaseImages) {
        versions[image] = release_->Files().at(image).version;
    }
    session_->Send(UpdateVersions(1, session_->PeerID(), versions));
}

asio::awaitable<void> CPush::SendRequested(const Packet& request) {
    constexpr std::size_t kRequestSize = 6;
    if (request.payload.size() == kRequestSize) {
        const std::uint32_t bit = Bytes::GetLE32(request.payload, 0);
        for (const auto& [image, file] : release_->Files()) {
            if (Wire::RowOf(image).offerBit == bit) {
                progress_.images[image] = {.size = file.FileSize()};
                co_await SendImage(image);
                co_return;
            }
        }
    }
    throw End{PushStep::kFailed, "the analyzer asked for an image that there is not", true};
}

asio::awaitable<void> CPush::SendImage(ImageId image) {
    const ReleaseFile& file = release_->Files().at(image);
    ImageProgress& progress = progress_.images[image];
    Tell(PushStep::kSending);
    std::ifstream source(file.path, std::ios::binary);
    Buffer piece;
    while (progress.sent < progress.size) {
        const auto size = std::min<std::int64_t>(progress.size - progress.sent, kMaxImagePiece);
        piece.resize(static_cast<std::size_t>(size));
        if (!source.read(reinterpret_cast<char*>(piece.data()), size)) {
            throw End{PushStep::kFailed, file.path.string() + " cannot be read any more", true};
        }
        CheckGoingOn();
        const Wire::PCPacketKind kind{.command = PCCommand::kImageData,
                                      .tag = 1,
                                      .subTag = static_cast<std::uint8_t>(session_->PeerID()),
                                      .flag = progress.sent + size < progress.size};
        const auto session = session_;
        const Buffer packet = MakePacket(kind, piece);
        co_await session->SendPaced(packet);
        progress.sent += size;
        TellSometimes();
    }
    (void)co_await Expect(PCCommand::kImageReceived, kStorePatience, "the analyzer does not say that it has the image");
    progress.stored = true;
    Tell(PushStep::kSending);
}

asio::awaitable<void> CPush::FollowInstallation() {
    Tell(PushStep::kInstalling);
    const Clock::time_point deadline = Clock::now() + kInstallPatience;
    asio::steady_timer pause(wake_.get_executor());
    while (Clock::now() < deadline && failure_.empty()) {
        const auto info = co_await AskState();
        if (info && info->activity != static_cast<std::uint8_t>(Activity::kUpdating)) {
            if (!HasInstalled(*info, *release_, progress_.images)) {
                throw End{PushStep::kFailed, "the analyzer has not installed it", false};
            }
            progress_.step = PushStep::kInstalled;
            if (looksInstalled_) {
                progress_.reason = "it tells no other versions than before: its screen tells whether they were written";
            }
            co_return;
        }
        // Nothing the analyzer says meanwhile matters, and it cannot be called off any more.
        wake_.expires_after(kLookPause);
        co_await wake_.async_wait(kNoThrow);
        inbox_.clear();
    }
    throw End{PushStep::kFailed, failure_.empty() ? "the analyzer does not come to an end" : failure_, false};
}

asio::awaitable<std::optional<DeviceInfo>> CPush::AskState() {
    const auto session = session_;
    if (session != nullptr) {
        try {
            co_return co_await session->GetInfo(kItemActivity | kItemAnyVersion);
        } catch (const LinkError&) {
            // It restarts, or is too busy to answer.
        }
    }
    co_return std::nullopt;
}

asio::awaitable<std::optional<Packet>> CPush::Next(Clock::duration patience) {
    const bool forever = patience == Clock::duration::max();
    const Clock::time_point deadline = forever ? Clock::time_point::max() : Clock::now() + patience;
    for (;;) {
        CheckGoingOn();
        if (!inbox_.empty()) {
            Packet packet = std::move(inbox_.front());
            inbox_.pop_front();
            co_return packet;
        }
        if (Clock::now() >= deadline) {
            co_return std::nullopt;
        }
        wake_.expires_at(deadline);
        co_await wake_.async_wait(kNoThrow);
    }
}

asio::awaitable<Packet> CPush::Expect(PCCommand command, Clock::duration patience, const char* otherwise) {
    for (;;) {
        auto packet = co_await Next(patience);
        if (!packet) {
            throw End{PushStep::kFailed, otherwise, true};
        }
        if (packet->header.command == PCCommand::kErrorNotice) {
            throw End{PushStep::kFailed, "the analyzer does not take the update", false};
        }
        if (packet->header.command == command) {
            co_return std::move(*packet);
        }
    }
}

void CPush::CheckGoingOn() const {
    if (cancelled_) {
        throw End{PushStep::kCancelled, "cancelled", true};
    }
    if (!failure_.empty()) {
        throw End{PushStep::kFailed, failure_, false};
    }
    if (session_ == nullptr || !session_->IsOpen()) {
        throw End{PushStep::kFailed, "the connection to the analyzer was lost", false};
    }
}

void CPush::Tell(PushStep step) {
    progress_.step = step;
    told_ = Clock::now();
    report_(progress_);
}

void CPush::TellSometimes() {
    if (Clock::now() - told_ >= kReportPause) {
        Tell(progress_.step);
    }
}

}  // namespace ZELPC
