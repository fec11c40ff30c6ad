// What the -ERR of a daemon means for the connection that it comes on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace quorl::transport::nats {

struct Complaint {
    enum class Kind : uint8_t {
        publishing,   // a message was not taken, for want of permission
        subscribing,  // a subscription was not taken, for want of permission
        full,         // a subscription was not taken, being one too many; which one the daemon does not say
        message,      // a message was not taken for another reason
        ends,         // the daemon closes the connection
        unknown,      // it may go on or close
    };

    Kind kind = Kind::unknown;
    std::string wireSubject;  // that it names; empty when it names none
    std::string group;        // of a subscription: the queue group that it names; empty when it names none
};

// text: without the quotation marks around it. Throws std::bad_alloc.
Complaint readComplaint(std::string_view text);

}  // namespace quorl::transport::nats
