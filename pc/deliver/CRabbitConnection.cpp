#include "deliver/CRabbitConnection.h"

#include <amqp_ssl_socket.h>
#include <amqp_tcp_socket.h>
#include <fmt/format.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

namespace ZELPC {

namespace {

constexpr amqp_channel_t kChannel = 1;
constexpr char kSystemAuthorities[] = "/etc/ssl/certs/ca-certificates.crt";

timeval ToTimeval(std::chrono::milliseconds duration) {
    return {duration.count() / 1000, (duration.count() % 1000) * 1000};
}

amqp_bytes_t ToBytes(std::string_view text) {
    // The library's type is not const, though it only reads.
    return {text.size(), const_cast<char*>(text.data())};
}

std::string ToText(amqp_bytes_t bytes) {
    return {static_cast<const char*>(bytes.bytes), bytes.len};
}

std::string Explain(const amqp_rpc_reply_t& reply) {
    if (reply.reply_type == AMQP_RESPONSE_LIBRARY_EXCEPTION) {
        return amqp_error_string2(reply.library_error);
    }
    if (reply.reply.id == AMQP_CHANNEL_CLOSE_METHOD) {
        return ToText(static_cast<amqp_channel_close_t*>(reply.reply.decoded)->reply_text);
    }
    if (reply.reply.id == AMQP_CONNECTION_CLOSE_METHOD) {
        return ToText(static_cast<amqp_connection_close_t*>(reply.reply.decoded)->reply_text);
    }
    return "the connection was closed";
}

}  // namespace

DeliveryOutcome CRabbitConnection::Publish(const OutgoingMessage& message) {
    if (connection_ == nullptr) {
        if (const std::string error = Open(); !error.empty()) {
            Close();
            return {Verdict::kUnreachable, fmt::format("{}:{}: {}", options_.host, options_.port, error)};
        }
    }
    std::array<amqp_table_entry_t, 1> headers{};
    headers[0].key = ToBytes("analyzer");
    headers[0].value.kind = AMQP_FIELD_KIND_UTF8;
    headers[0].value.value.bytes = ToBytes(message.serial);
    // The same for every repetition, whatever the text's own number is.
    const std::string id =
        message.uniqueControlId ? message.controlId : fmt::format("{}-{}", message.serial, message.result);
    amqp_basic_properties_t properties{};
    properties._flags = AMQP_BASIC_CONTENT_TYPE_FLAG | AMQP_BASIC_DELIVERY_MODE_FLAG | AMQP_BASIC_MESSAGE_ID_FLAG |
                        AMQP_BASIC_HEADERS_FLAG;
    properties.content_type = ToBytes("application/hl7-v2");
    properties.delivery_mode = AMQP_DELIVERY_PERSISTENT;
    properties.message_id = ToBytes(id);
    properties.headers = {static_cast<int>(headers.size()), headers.data()};
    constexpr amqp_boolean_t kMandatory = 1;  // else a message to a queue that is gone would be confirmed and lost
    const int status = amqp_basic_publish(connection_, kChannel, amqp_empty_bytes, ToBytes(options_.queue), kMandatory,
                                          0, &properties, ToBytes(message.text));
    const DeliveryOutcome outcome = status == AMQP_STATUS_OK
                                        ? AwaitConfirmation()
                                        : DeliveryOutcome{Verdict::kNoAnswer, amqp_error_string2(status)};
    if (outcome.verdict != Verdict::kAccepted) {
        Close();
    }
    return outcome;
}

std::string CRabbitConnection::Open() {
    connection_ = amqp_new_connection();
    if (connection_ == nullptr) {
        return "no memory";
    }
    if (const std::string error = OpenSocket(); !error.empty()) {
        return error;
    }
    return NoteSocket(amqp_get_sockfd(connection_)) ? LogIn() : "broken off";
}

/// False when the connection is not wanted any more.
bool CRabbitConnection::NoteSocket(int socket) {
    const std::lock_guard lock(mutex_);
    socket_ = socket;
    return !brokenOff_;
}

void CRabbitConnection::BreakOff() {
    const std::lock_guard lock(mutex_);
    brokenOff_ = true;
    if (socket_ >= 0) {
        ::shutdown(socket_, SHUT_RDWR);
    }
}

std::string CRabbitConnection::LogIn() {
    constexpr int kFrame = 131072;
    constexpr int kHeartbeat = 0;  // nobody would send it between messages; a broken connection shows at the next one
    const amqp_rpc_reply_t login = amqp_login(connection_, options_.virtualHost.c_str(), 0, kFrame, kHeartbeat,
                                              AMQP_SASL_METHOD_PLAIN, options_.user.c_str(), options_.password.c_str());
    if (login.reply_type != AMQP_RESPONSE_NORMAL) {
        return "login: " + Explain(login);
    }
    return OpenChannel();
}

std::string CRabbitConnection::OpenSocket() {
    amqp_socket_t* const socket = options_.tls ? amqp_ssl_socket_new(connection_) : amqp_tcp_socket_new(connection_);
    if (socket == nullptr) {
        return "no socket";
    }
    if (options_.tls) {
        const int ca =
            amqp_ssl_socket_set_cacert(socket, options_.caFile.empty() ? kSystemAuthorities : options_.caFile.c_str());
        const int key =
            options_.certificateFile.empty()
                ? 0
                : amqp_ssl_socket_set_key(socket, options_.certificateFile.c_str(), options_.keyFile.c_str());
        if (ca != AMQP_STATUS_OK || key != AMQP_STATUS_OK) {
            return "TLS: the files cannot be used";
        }
        amqp_ssl_socket_set_verify_peer(socket, 1);
        amqp_ssl_socket_set_verify_hostname(socket, 1);
    }
    const timeval connect = ToTimeval(options_.connectTimeout);
    const timeval answer = ToTimeval(options_.answerTimeout);
    amqp_set_handshake_timeout(connection_, &connect);
    amqp_set_rpc_timeout(connection_, &answer);
    const int status = amqp_socket_open_noblock(socket, options_.host.c_str(), std::stoi(options_.port), &connect);
    return status == AMQP_STATUS_OK ? std::string() : amqp_error_string2(status);
}

std::string CRabbitConnection::OpenChannel() {
    amqp_channel_open(connection_, kChannel);
    if (std::string error = Problem("channel"); !error.empty()) {
        return error;
    }
    amqp_table_entry_t type{};
    type.key = ToBytes("x-queue-type");
    type.value.kind = AMQP_FIELD_KIND_UTF8;
    type.value.value.bytes = ToBytes("quorum");
    const amqp_table_t arguments{1, &type};
    constexpr amqp_boolean_t kDurable = 1;
    amqp_queue_declare(connection_, kChannel, ToBytes(options_.queue), 0, kDurable, 0, 0, arguments);
    if (std::string error = Problem("queue"); !error.empty()) {
        return error;
    }
    amqp_confirm_select(connection_, kChannel);
    return Problem("confirmations");
}

std::string CRabbitConnection::Problem(const char* doing) const {
    const amqp_rpc_reply_t reply = amqp_get_rpc_reply(connection_);
    return reply.reply_type == AMQP_RESPONSE_NORMAL ? std::string() : fmt::format("{}: {}", doing, Explain(reply));
}

DeliveryOutcome CRabbitConnection::AwaitConfirmation() {
    const auto deadline = std::chrono::steady_clock::now() + options_.answerTimeout;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        const timeval timeout = ToTimeval(std::max(left, std::chrono::milliseconds(0)));
        amqp_frame_t frame{};
        amqp_maybe_release_buffers(connection_);
        const int status = amqp_simple_wait_frame_noblock(connection_, &frame, &timeout);
        if (status != AMQP_STATUS_OK) {
            return {Verdict::kNoAnswer, std::string("no confirmation: ") + amqp_error_string2(status)};
        }
        if (frame.frame_type != AMQP_FRAME_METHOD) {
            continue;
        }
        switch (frame.payload.method.id) {
            case AMQP_BASIC_ACK_METHOD:
                return {Verdict::kAccepted, {}};
            case AMQP_BASIC_NACK_METHOD:
                return {Verdict::kTryAgain, "the broker could not keep it"};
            case AMQP_BASIC_RETURN_METHOD:
                // It is declared again with the next connection.
                return {Verdict::kUnreachable, "there is no queue " + options_.queue};
            case AMQP_CHANNEL_CLOSE_METHOD:
            case AMQP_CONNECTION_CLOSE_METHOD:
                return {Verdict::kNoAnswer, "the broker closed the connection"};
            default:
                break;
        }
    }
}

void CRabbitConnection::Close() {
    if (connection_ != nullptr) {
        NoteSocket(-1);
        amqp_destroy_connection(connection_);
        connection_ = nullptr;
    }
}

}  // namespace ZELPC
