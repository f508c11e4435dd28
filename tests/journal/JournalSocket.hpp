#ifndef TESTS_JOURNAL_JOURNALSOCKET_HPP
#define TESTS_JOURNAL_JOURNALSOCKET_HPP

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace journaltest {

/** The fields of an entry. A field that is sent twice contains both values, separated by "|". */
typedef std::map<std::string, std::string> Fields;

/**
 * Parses an entry of the journal's native protocol: each field is a line "NAME=VALUE" or, for values that
 * contain a newline, a line "NAME", the length in 64 bits with the least significant byte first, the value
 * and a newline.
 */
inline Fields parseEntry(const std::string& bytes)
{
    Fields fields;
    std::size_t at = 0;
    while (at < bytes.size()) {
        const std::size_t end = bytes.find('\n', at);
        if (end == std::string::npos) {
            throw std::runtime_error("a field does not end");
        }
        const std::string line = bytes.substr(at, end - at);
        const std::size_t equals = line.find('=');
        std::string name = line.substr(0, equals);
        std::string value;
        at = end + 1;
        if (equals != std::string::npos) {
            value = line.substr(equals + 1);
        } else {
            std::uint64_t length = 0;
            if (bytes.size() - at < sizeof length) {
                throw std::runtime_error("a length does not end");
            }
            std::memcpy(&length, bytes.data() + at, sizeof length);
            at += sizeof length;
            if (length >= bytes.size() - at || bytes[at + length] != '\n') {
                throw std::runtime_error("a value has the wrong length");
            }
            value = bytes.substr(at, length);
            at += length + 1;
        }
        const auto added = fields.emplace(name, value);
        if (!added.second) {
            added.first->second += "|" + value;
        }
    }
    return fields;
}

/**
 * The socket of a journal, at the path that libsystemd uses. Requires a private /run, so that no journal of
 * the machine is replaced.
 */
class JournalSocket
{
public:
    static constexpr char PATH[] = "/run/systemd/journal/socket";

    JournalSocket() : descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        std::filesystem::create_directories(std::filesystem::path(PATH).parent_path());
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, PATH, sizeof PATH);
        if (::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error("cannot bind " + std::string(PATH));
        }
    }
    ~JournalSocket()
    {
        ::close(descriptor);
    }
    JournalSocket(const JournalSocket&) = delete;
    JournalSocket& operator=(const JournalSocket&) = delete;

    /** Returns whether an entry arrives within this time. */
    bool hasEntry(int milliseconds = 0) const
    {
        pollfd waiting = {descriptor, POLLIN, 0};
        return ::poll(&waiting, 1, milliseconds) == 1;
    }

    /** Returns the fields of the next entry; none if it does not arrive within 15 seconds. */
    Fields next() const
    {
        return hasEntry(15000) ? parseEntry(receive()) : Fields();
    }

private:
    /** Returns a datagram or, for an entry that is too large for one, the content of the file that it passes.
     */
    std::string receive() const
    {
        std::string bytes(1000000, '\0');
        std::array<char, CMSG_SPACE(sizeof(int))> control = {};
        iovec part = {bytes.data(), bytes.size()};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t length = ::recvmsg(descriptor, &message, MSG_CMSG_CLOEXEC);
        const cmsghdr* const passed = CMSG_FIRSTHDR(&message);
        if (passed == nullptr) {
            bytes.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
            return bytes;
        }
        int file = -1;
        std::memcpy(&file, CMSG_DATA(passed), sizeof file);
        struct stat status = {};
        ::fstat(file, &status);
        bytes.resize(static_cast<std::size_t>(status.st_size));
        const ssize_t count = ::pread(file, bytes.data(), bytes.size(), 0);
        ::close(file);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

    const int descriptor;
};

}

#endif
