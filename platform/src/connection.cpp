// Reads, serves and writes in turns, so that no client holds the others up: a turn serves a bounded number of
// frames and then lets the loop go round. Services call Send from inside a message callback, where the
// connection must not be destroyed under them. Whatever fails there only marks it as lost; the next turn of
// the loop closes it.
#include "connection.h"

#include <ctime>
#include <tuple>

#include "server.h"

namespace Kestrel {

Connection::Connection(Server& server, Descriptor socket) :
    kestrel_connection{socket.Get()}, m_server(server), m_socket(std::move(socket)), m_reader(server.Store()),
    m_lines(fd),
    m_readable(Event::Make<&Connection::OnReadable>(server.Base(), fd, EV_READ | EV_PERSIST, this)),
    m_writable(Event::Make<&Connection::OnWritable>(server.Base(), fd, EV_WRITE | EV_PERSIST, this)),
    m_turn(Event::Make<&Connection::OnTurn>(server.Base(), -1, 0, this)) {}

Connection::~Connection() {
    m_server.HeldChanged(m_counted, 0);
}

void Connection::Start(std::list<Connection>::iterator self) {
    m_self = self;
    if (!m_readable.Add()) {
        MarkLost();
    }
}

void Connection::TellClosed() {
    m_lost = true;
    const kestrel_connection_ops* ops = m_server.connection_ops;
    if (ops != nullptr && ops->closed != nullptr) {
        Fenced("a closed callback", [&] { ops->closed(this); });
    }
}

int Connection::Send(Message& msg) {
    if (m_lost) {
        return -1;
    }
    const Outbox::Result result = m_outbox.Send(fd, msg);
    CountHeld();
    if (m_lost || result == Outbox::Result::FAILED ||
        (result == Outbox::Result::WAITING && !m_writable.Add())) {
        MarkLost();
        return -1;
    }
    msg.MarkAnswered();
    if (m_outbox.Memory() >= MAX_WAITING_REPLIES) {
        PauseReading();
    }
    return 0;
}

void Connection::OnReadable() {
    const LogBudget::Scope lines(m_lines);
    if (m_turn.IsPending()) {
        return; // frames that have been received come first
    }
    switch (m_reader.Receive(fd)) {
    case FrameReader::Input::DATA:
        StampMove();
        CountHeld();
        return ServeFrames();
    case FrameReader::Input::NOTHING:
        return;
    case FrameReader::Input::END:
        return EndOfInput();
    case FrameReader::Input::NO_MEMORY:
        KESTREL_LOG_ENDED("connection fd[%d]: no memory for a frame, closed", fd);
        return Close();
    }
}

void Connection::OnWritable() {
    const LogBudget::Scope lines(m_lines);
    if (m_outbox.Flush(fd) == Outbox::Result::FAILED) {
        return Close();
    }
    StampMove();
    CountHeld();
    AfterFlush();
}

void Connection::OnTurn() {
    const LogBudget::Scope lines(m_lines);
    if (m_lost) {
        return Close();
    }
    ServeFrames();
}

// Serves what has been received, up to one turn's share. May end this object.
void Connection::ServeFrames() {
    for (int i = 0; i < FRAMES_PER_TURN; ++i) {
        if (m_lost || m_paused) {
            return; // the turn closes it, or the drained outbox resumes it
        }
        if (!ServeNextFrame()) {
            return;
        }
    }
    if (!m_turn.AddTimer(0)) {
        Close();
    }
}

// False when there is none, and after a bad one, which ends this object.
bool Connection::ServeNextFrame() {
    Message* frame = nullptr;
    switch (m_reader.Next(&frame)) {
    case FrameReader::Found::FRAME:
        Serve(frame);
        return true;
    case FrameReader::Found::PART:
        if (m_ended && m_outbox.IsEmpty()) {
            Close();
        }
        return false;
    case FrameReader::Found::BAD:
        LogBadFrame();
        break;
    case FrameReader::Found::NO_MEMORY:
        KESTREL_LOG_ENDED("connection fd[%d]: no memory for a frame, closed", fd);
        break;
    }
    Close();
    return false;
}

void Connection::Serve(Message* msg) {
    const bool done = Fenced("a message callback", [&] { m_server.protocol_ops->message(msg, this); });
    if (!done && !msg->IsAnswered()) {
        KESTREL_LOG_ENDED("connection fd[%d]: a request went unanswered, closed", fd);
        MarkLost();
    }
    m_server.Store().GiveBack(msg);
}

// The peer sends nothing more. Replies that wait are still written: it may have shut down one direction.
void Connection::EndOfInput() {
    m_ended = true;
    m_readable.Remove();
    if (m_outbox.IsEmpty()) {
        Close();
    }
}

void Connection::AfterFlush() {
    if (m_outbox.IsEmpty()) {
        m_writable.Remove();
        const kestrel_connection_ops* ops = m_server.connection_ops;
        if (ops != nullptr && ops->writable != nullptr) {
            Fenced("a writable callback", [&] { ops->writable(this); });
        }
    }
    if (m_lost) {
        return; // the turn closes it
    }
    if (m_paused && m_outbox.Memory() <= RESUME_WAITING_REPLIES) {
        ResumeReading();
    }
    if (m_ended && m_outbox.IsEmpty() && !m_turn.IsPending()) {
        Close();
    }
}

void Connection::PauseReading() {
    m_paused = true;
    m_readable.Remove();
}

// Frames that had been received when it paused are served without waiting for further bytes.
void Connection::ResumeReading() {
    m_paused = false;
    if ((!m_ended && !m_readable.Add()) || !m_turn.AddTimer(0)) {
        MarkLost();
    }
}

void Connection::LogBadFrame() const {
    const tern_header header = m_reader.BadHeader();
    KESTREL_LOG_ENDED("connection fd[%d]: bad frame, magic 0x%04x, length %u, closed", fd,
                      unsigned{header.magic}, unsigned{header.length});
}

void Connection::MarkLost() {
    if (!m_lost) {
        m_lost = true;
        m_readable.Remove();
        m_writable.Remove();
        m_reader.Clear();
        m_outbox.Clear();
        CountHeld();
        m_turn.Activate();
    }
}

// Within one tick all have moved at the same time.
void Connection::StampMove() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    m_moved = std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

bool Connection::IsClosedBefore(const Connection* other) const {
    return Held() > FREE_HELD && (other == nullptr || std::make_tuple(m_moved, other->Held()) <
                                                          std::make_tuple(other->m_moved, Held()));
}

// May cost a connection that holds much what it holds: this one, too.
void Connection::CountHeld() {
    const std::size_t before = std::exchange(m_counted, Held());
    m_server.HeldChanged(before, m_counted);
}

void Connection::Close() {
    m_server.End(m_self);
}

} // namespace Kestrel
