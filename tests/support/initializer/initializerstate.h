#pragma once

#include <device/initializer.h>

#include <QMetaMethod>
#include <QTimer>

// The public interface does not show the state of a probed port, so tests read the Initializer's private tables. In
// C++, an explicit template instantiation may name a private member.

template <typename Tag, typename Tag::Member member>
struct InitializerAccess
{
    friend typename Tag::Member memberOf(Tag) { return member; }
};

struct CommTimers
{
    using Member = QHash<JwDevice::Communicator *, QTimer *> JwDevice::Initializer::*;
    friend Member memberOf(CommTimers);
};
template struct InitializerAccess<CommTimers, &JwDevice::Initializer::m_commTimers>;

struct CommTypes
{
    using Member = QHash<JwDevice::Communicator *, JwDevice::Type> JwDevice::Initializer::*;
    friend Member memberOf(CommTypes);
};
template struct InitializerAccess<CommTypes, &JwDevice::Initializer::m_commTypes>;

struct IsSignalConnected
{
    using Member = bool (QObject::*)(const QMetaMethod &) const;
    friend Member memberOf(IsSignalConnected);
};
template struct InitializerAccess<IsSignalConnected, &QObject::isSignalConnected>;

/// Returns every Communicator that a probe made, with its reply timer. The application may have deleted the
/// Communicator of a handed-over board already, so check that it still exists before you use its pointer.
inline QHash<JwDevice::Communicator *, QTimer *> replyTimers(const JwDevice::Initializer &initializer)
{
    return initializer.*memberOf(CommTimers());
}

inline bool isRouted(const JwDevice::Communicator *comm)
{
    using JwDevice::Communicator;
    return (comm->*memberOf(IsSignalConnected()))(QMetaMethod::fromSignal(qOverload<>(&Communicator::readyRead)));
}

enum class PortState {
    NotProbed,
    AwaitingReply,
    TimedOut,
    Silenced,
    HandedOver,
    Duplicate,
};

inline PortState stateOf(const JwDevice::Initializer &initializer, JwDevice::Communicator *comm)
{
    const auto types = initializer.*memberOf(CommTypes());
    const QTimer *timer = replyTimers(initializer).value(comm);
    if (!timer)
        return PortState::NotProbed;
    if (!types.contains(comm))
        return timer->isActive() ? PortState::AwaitingReply : PortState::Silenced;
    if (types.value(comm) != JwDevice::Unknown)
        return PortState::HandedOver;
    return isRouted(comm) ? PortState::TimedOut : PortState::Duplicate;
}
