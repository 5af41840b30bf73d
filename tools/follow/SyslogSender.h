// follow --syslog: the messages on their way to the log server, kept in memory while it cannot be
// reached and sent, oldest first, once it can again.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include "follow/SyslogMessage.h"

namespace tool {

// How many messages wait for a log server that cannot be reached, at most.
constexpr std::size_t kSyslogBacklog = 10000;

// Messages not sent yet, oldest first: at most `bound`, beyond which the oldest are dropped and
// counted.
class PendingMessages {
public:
    explicit PendingMessages(std::size_t bound) : bound_(bound) {}

    void add(std::string message);
    bool empty() const { return messages_.empty(); }
    std::size_t size() const { return messages_.size(); }
    const std::string& oldest() const { return messages_.front(); }
    void removeOldest() { messages_.pop_front(); }
    // How many were dropped since the last call.
    std::size_t takeDropped();

private:
    std::size_t bound_;
    std::deque<std::string> messages_;
    std::size_t dropped_ = 0;
};

// Sends messages to one log server: one a datagram over UDP and on a datagram unix socket;
// octet-counted over TCP; each ended by a NUL byte on a stream unix socket, as syslog(3) does. A
// server that cannot be reached (no answer, refused, reset, no socket, a name that does not
// resolve; over UDP, a datagram the server's host refuses) is tried again at the next delivery.
class SyslogSender {
public:
    explicit SyslogSender(SyslogAddress address, std::size_t bound = kSyslogBacklog);
    ~SyslogSender();
    SyslogSender(const SyslogSender&) = delete;
    SyslogSender& operator=(const SyslogSender&) = delete;

    // Sends the messages waiting, then `messages`, keeping those the server could not be given.
    // Returns the notes for standard error, each line "ipmi-event-log: syslog: ...": that the
    // server cannot be reached (once, until it is reached again), that it is reached again, and
    // how many messages were dropped meanwhile.
    std::string deliver(std::vector<std::string> messages);
    // The note for what was never sent, at the end of a run; "" when everything was.
    std::string finish();
    // Whether every message given so far has been sent: none waits for the server.
    bool allSent() const { return pending_.empty(); }

private:
    bool sendPending(std::string& reason);
    bool sendOne(const std::string& message, std::string& reason);
    bool connect(std::string& reason);
    bool connectUnix(std::string& reason);
    bool connectInet(std::string& reason);
    bool peerClosed() const;
    // The error an ICMP message left on the socket since (and cleared); 0 for none.
    int pendingError() const;
    void disconnect();
    std::string droppedNote();

    SyslogAddress address_;
    std::size_t bound_;
    PendingMessages pending_;
    int fd_ = -1;
    bool stream_ = false;
    bool unreachable_ = false;
};

}  // namespace tool
