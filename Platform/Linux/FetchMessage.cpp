#include "Platform/Linux/FetchMessage.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace tarn {
namespace {

constexpr std::size_t headBytes = 1 + sizeof(std::uint32_t);

} // namespace

bool FetchMessage::send(int socket) const {
    std::array<char, headBytes> head{static_cast<char>(kind)};
    std::memcpy(head.data() + 1, &fetch, sizeof fetch);
    // The system takes it as writable, and leaves it alone.
    std::array<iovec, 2> parts{
        {{head.data(), head.size()}, {const_cast<char *>(content.data()), content.size()}}};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    ssize_t sent = 0;
    do
        sent = sendmsg(socket, &message, MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

std::optional<FetchMessage> FetchMessage::receive(int socket, std::string &buffer) {
    buffer.resize(mostBytes);
    ssize_t size = 0;
    do
        size = recv(socket, buffer.data(), buffer.size(), MSG_TRUNC);
    while (size < 0 && errno == EINTR);
    const auto bytes = static_cast<std::size_t>(size);
    if (size < 0 || bytes < headBytes || bytes > buffer.size())
        return std::nullopt;
    FetchMessage message{static_cast<Kind>(buffer[0]), 0, {buffer.data() + headBytes, bytes - headBytes}};
    std::memcpy(&message.fetch, buffer.data() + 1, sizeof message.fetch);
    return message;
}

} // namespace tarn
