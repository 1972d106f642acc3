// Remote calls between the host and its companion server.
//
// One connection is one SOCK_SEQPACKET socket pair: each message is one
// ZqRemoteHeader and its payload.  A call names an object of the peer (an
// id the peer handed out), the interface and the method (the vtable slot);
// the answer is a reply with the method's status and its out-arguments.
// Each interface method is described once (zqvstremote.cpp), and the same
// description writes and reads the arguments on both sides: the proxy
// writes the in-arguments and reads the out-arguments, the stub the other
// way round.
//
// Calls are synchronous and re-entrant: a thread that waits for its answer
// serves the calls that the peer makes meanwhile (a plug-in's request to its
// host while the host's call runs).  On the host, calls from several
// threads take turns on the connection.  In the server, the thread that
// serves the host's call calls back on the same socket, an effect's audio
// thread inside ProcessAudio through its shared block, and any other thread
// (a plug-in's own) on a side channel, one call at a time, which a thread
// of the host serves.
//
// ProcessAudio does not use the socket: each effect shares one sealed
// memory block with its stub (handed over once, with SCM_RIGHTS, and again
// only when a larger block is needed), and a futex in it wakes the other
// side.  The calls a plug-in makes to its host during processing cross in
// the same block.
//
// A peer that goes away (hang-up, process end, a message that breaks the
// format) ends the connection: every later call through it answers
// ZQ_E_RPC_CALL_FAILED (0x800706BA) at once.  Messages carry a version; a
// method the peer does not know answers E_NOTIMPL.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "aplugins/zqvstwrap/host/izqvsteffectfactory.h"
#include "aplugins/zqvstwrap/izqvsteffect.h"
#include "aplugins/zqvstwrap/izqvstmaster.h"
#include "base/status.h"
#include "base/types.h"

constexpr uint32_t kZqRemoteMagic = 0x6D52715A;  // 'ZqRm'
constexpr uint16_t kZqRemoteVersion = 1;

enum ZqRemoteKind : uint16_t {
  kZqRemoteStart = 1,  // the server's first message: its registration result in `status`
  kZqRemoteCall = 2,
  kZqRemoteReply = 3,
};

// Interfaces that cross, by number.
enum ZqRemoteInterface : uint16_t {
  kZqRemoteFactory = 1,
  kZqRemoteEffect = 2,
  kZqRemoteMaster = 3,
  kZqRemoteStream = 4,  // preset and bank data: the host's stream, read and written from the server
};

// Methods beyond the vtable slots.
constexpr uint16_t kZqRemoteRelease = 2;            // the peer's reference on `object` goes
constexpr uint16_t kZqRemoteGetClassObject = 0x100; // object kZqRemoteClassObject: a new reference of it
constexpr uint16_t kZqRemoteAttachAudio = 0x101;    // an effect: the shared block (one descriptor)
// The object id of the class object a server registers.
constexpr uint32_t kZqRemoteClassObject = 1;
// The largest message, header included.
constexpr size_t kZqRemoteMaxMessage = 65536;

struct ZqRemoteHeader {
  uint32_t magic;    // kZqRemoteMagic
  uint16_t version;  // kZqRemoteVersion
  uint16_t kind;     // ZqRemoteKind
  uint32_t object;   // the callee's object id
  uint16_t iface;    // ZqRemoteInterface
  uint16_t method;   // vtable slot or one of the methods above
  int32_t status;    // a reply's status (a call: 0)
  uint32_t size;     // payload bytes after the header
};
static_assert(sizeof(ZqRemoteHeader) == 24, "the message header is a wire record");

class ZqRemoteConnection;

// Makes a connection over `socket` (the connection owns it).  `process` is
// the peer's process handle on the host side (watched for its end; the
// connection owns it), null in the server.  `sideSocket` (host side, -1:
// none) is the side channel the server's start message handed over; a
// thread of the connection serves it until the server goes.
std::shared_ptr<ZqRemoteConnection> ZqRemoteConnect(int socket, HANDLE process, int sideSocket = -1);

// Host side: a proxy of the server's class object (kZqRemoteGetClassObject),
// answering `riid`.  ZQ_E_RPC_CALL_FAILED when the connection has ended.
HRESULT ZqRemoteGetClassObject(const std::shared_ptr<ZqRemoteConnection>& connection, REFIID riid,
                               void** object);
// Host side: calls on proxies of this connection that wait for an answer
// give up after `timeoutMs` (INFINITE: never), end the server and answer
// ZQ_E_CANCELLED.  For a server started for one probe.
void ZqRemoteSetCallLimit(const std::shared_ptr<ZqRemoteConnection>& connection, DWORD timeoutMs);
// Whether the connection has ended (its peer gone or the format broken).
bool ZqRemoteIsEnded(const std::shared_ptr<ZqRemoteConnection>& connection);
// Ends the peer process (host side) and the connection.
void ZqRemoteTerminate(const std::shared_ptr<ZqRemoteConnection>& connection);
// Host side: waits at most `timeoutMs` for the server process to end; true
// when it has.
bool ZqRemoteWaitForEnd(const std::shared_ptr<ZqRemoteConnection>& connection, DWORD timeoutMs);
// The peer's process id (host side; 0 in the server).
DWORD ZqRemoteProcessId(const std::shared_ptr<ZqRemoteConnection>& connection);

// Server side: `classObject` becomes object kZqRemoteClassObject; then the
// connection sends the start message with `status` and serves calls until
// the host hangs up, a message breaks the format, or `shouldQuit` answers
// true after a message.  Answers 0 after a hang-up or quit, 1 after a
// broken message.
int ZqRemoteServe(const std::shared_ptr<ZqRemoteConnection>& connection, IUnknown* classObject,
                  HRESULT status, bool (*shouldQuit)());
