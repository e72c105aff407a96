// Private: the frames exchanged between endpoints. Every frame is a uint32
// payload size, a uint32 type and the payload (host byte order: both ends
// are on the same machine).
//
// Data connections: kHelloData, then requests (kTransact, kTransactOneway,
// kPing, kGetService, kAcquire), each two-way one answered by a kReply.
// Before its kReply, the side serving a two-way request may send requests
// the other way on the same connection (nested calls), which the waiting
// side serves and answers there.
// Control connections: kHelloControl, then kRelease and kDead messages.
// Parcels travel as: uint32 data size, the data, uint32 object count, and
// per object: string endpoint key (empty: null), uint64 node id, string
// interface descriptor, uint32 stability mark. Strings are a uint32 length and the bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace binder_host {

enum MessageType : uint32_t {
    kHelloData = 1,  // int32 pid, string endpoint key "ep-<pid>-<hex>"
    kHelloControl,   // int32 pid, string endpoint key
    kHelloProbe,     // liveness probe, closed at once
    kTransact,       // uint64 node, uint32 code, parcel
    kTransactOneway,
    kReply,       // int32 status, uint32 flags, parcel (two-way transactions with status OK)
    kPing,        // uint64 node
    kGetService,  // string instance name
    kAcquire,     // uint64 node: count one more reference for the sender
    kRelease,     // uint64 node, uint32 count
    kDead,        // uint64 node
};

constexpr size_t kHeaderSize = 8;  // uint32 payload size, uint32 type
// A transaction's parcel (data and object table, as sent) may take what a
// device's binder buffer holds: 1 MiB less two pages. Larger ones fail on
// the sender with STATUS_FAILED_TRANSACTION.
constexpr size_t kMaxTransaction = (1u << 20) - 8192;
// A frame that announces a larger payload is a protocol error: its
// connection is closed before anything is allocated for it.
constexpr uint32_t kMaxFrame = 1u << 20;
constexpr uint32_t kMaxHelloFrame = 128;  // a hello is a pid and a key
constexpr uint32_t kReplyNodeGone = 1;    // reply flag: the object no longer exists

}  // namespace binder_host
