#ifndef KESTREL_CONNECTION_H
#define KESTREL_CONNECTION_H

#include <cstdint>
#include <list>

#include "descriptor.h"
#include "event.h"
#include "frame_reader.h"
#include "log_budget.h"
#include "outbox.h"

namespace Kestrel {

class Server;

// One client: reads its frames, hands them to the service one by one, writes the replies.
// Owned by its server, which ends it on its request. Loop thread only.
class Connection final : public kestrel_connection {
public:
    Connection(Server& server, Descriptor socket);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // Begins to read; its place in the server's list comes along.
    void Start(std::list<Connection>::iterator self);

    // Tells the service, while the descriptor is still open.
    void TellClosed();

    // Called by services, inside their callbacks: never closes the connection, only marks it as lost.
    int Send(Message& msg);

    // Memory that waits for its client.
    std::size_t Held() const { return m_reader.Memory() + m_outbox.Memory(); }
    // Of the two, this one is to be closed when all hold too much: its bytes have stood still for longer, or
    // as long and it holds more. Never one that holds no more than is free for each. The other may be null.
    bool IsClosedBefore(const Connection* other) const;
    // Drops what is held; the loop closes the connection before it waits again. Safe inside of callbacks.
    void MarkLost();

private:
    void OnReadable();
    void OnWritable();
    void OnTurn();

    void ServeFrames();
    bool ServeNextFrame();
    void Serve(Message* msg);
    void EndOfInput();
    void AfterFlush();
    void PauseReading();
    void ResumeReading();
    void LogBadFrame() const;
    void CountHeld();
    void StampMove();
    void Close();

    Server& m_server;
    Descriptor m_socket;
    std::list<Connection>::iterator m_self;
    FrameReader m_reader;
    Outbox m_outbox;
    std::size_t m_counted = 0; // what the loop knows to be held
    std::int64_t m_moved = 0;  // when bytes last came or waiting ones left, in ticks of the coarse clock
    bool m_lost = false;       // to be closed at the next turn
    bool m_ended = false;      // the peer sends nothing more, but may still read
    bool m_paused = false;     // too many replies wait
    LogBudget m_lines;
    Event m_readable;
    Event m_writable;
    Event m_turn; // a zero timer: goes on after the others had their turn
};

} // namespace Kestrel

#endif
