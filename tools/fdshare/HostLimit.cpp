#include "fdshare/HostLimit.h"

#include "peer/windows/Policy.h"
#include "peer/windows/Protocol.h"

namespace host {

namespace {

// No folder's name has it: the command line refuses such.
constexpr char kDelimiter = '\x1F';

bool isPolicy(peer::View message) {
    return message.size() >= 2 &&
           peer::loadLe<std::uint16_t>(message.data()) == peer::windows::kPolicy;
}

}  // namespace

bool applyLimit(const HostLimit& limit, peer::Bytes& message) {
    if (limit.isNone() || !isPolicy(message)) return true;

    peer::windows::Policy policy;
    try {
        policy = peer::windows::Policy::decode(message);
    } catch (const peer::BadMessage&) {
        return false;
    }
    if (limit.readOnly) policy.word |= peer::windows::kReadOnly;
    if (!limit.rootFolders.empty()) {
        policy.rootMap = 1;
        policy.mountParents.clear();
        policy.delimiter = kDelimiter;
        policy.filter = peer::windows::joined(limit.rootFolders, kDelimiter);
    }
    message = policy.encode();
    return true;
}

}  // namespace host
