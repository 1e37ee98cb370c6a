#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn {

/// What a program and the TarnlinkFetch that it started tell each other, each over a socket that keeps
/// messages apart (unix(7), SOCK_SEQPACKET).
///
/// Thread: any. Errors: a peer that is gone is no error; send() tells of it and receive() has nothing.
struct FetchMessage {
    enum class Kind : char {
        get = 'g',         ///< The address. From here on it is TarnlinkFetch that speaks of the fetch,
        cancel = 'x',      ///< unless the fetch is not wanted any more.
        piece = 'p',       ///< Of the body.
        certificate = 'c', ///< That the server showed, in DER; the error follows.
        status = 's',      ///< The end: the code in digits.
        error = 'e',       ///< The end: domain, code and words, with a blank between them.
    };
    /// With its head. A fetch's pieces are far shorter, and OpenSSL takes no longer certificate.
    static constexpr std::size_t mostBytes = 128 * 1024;

    Kind kind = Kind::get;
    /// Which one, of the program's choice.
    std::uint32_t fetch = 0;
    std::string_view content;

    /// Waits for room. False when nobody will read it.
    bool send(int socket) const;
    /// Waits for one, whose content is kept in `buffer`. None at the end, and for what is no message.
    static std::optional<FetchMessage> receive(int socket, std::string &buffer);
};

} // namespace tarn
