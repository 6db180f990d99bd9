#pragma once

#include <device/communicator.h>

// A Communicator counts its payloads to give them ids. The counters return to 0 after 2^32 payloads. A test can't send
// so many payloads, so it sets the counters with these functions. The counters are private, but in C++ an explicit
// template instantiation may name a private member.

template <typename Tag, typename Tag::Member member>
struct CounterAccess
{
    friend typename Tag::Member counterOf(Tag) { return member; }
};

struct ReceiveCounter
{
    using Member = uint JwDevice::Communicator::*;
    friend Member counterOf(ReceiveCounter);
};
template struct CounterAccess<ReceiveCounter, &JwDevice::Communicator::m_rxId>;

struct TransmitCounter
{
    using Member = uint JwDevice::Communicator::*;
    friend Member counterOf(TransmitCounter);
};
template struct CounterAccess<TransmitCounter, &JwDevice::Communicator::m_txId>;

/// Sets the counter so that the next received payload gets the id after `id`.
inline void setLastReceiveId(JwDevice::Communicator &communicator, uint id)
{
    communicator.*counterOf(ReceiveCounter()) = id;
}

/// Sets the counter so that the next written payload gets `id`.
inline void setNextTransmitId(JwDevice::Communicator &communicator, uint id)
{
    communicator.*counterOf(TransmitCounter()) = id;
}
