// Binary trace codecs for the platform value types that per-packet trace lines carry.
// Codes are stable forever: files written by older builds decode with them.
#pragma once
#include "Lumo/EthAddr.h"
#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"
#include "Quarn/FecId.h"
#include "Ringlog/Codec.h"

template <>
struct Ringlog::Codec<Lumo::IntfId> : Ringlog::TrivialCodec<Lumo::IntfId, 0x100> {};
template <>
struct Ringlog::Codec<Lumo::EthAddr> : Ringlog::TrivialCodec<Lumo::EthAddr, 0x101> {};
template <>
struct Ringlog::Codec<Lumo::IpGenAddr> : Ringlog::TrivialCodec<Lumo::IpGenAddr, 0x102> {};
template <>
struct Ringlog::Codec<Lumo::IpGenPrefix> : Ringlog::TrivialCodec<Lumo::IpGenPrefix, 0x103> {};
template <>
struct Ringlog::Codec<Quarn::Fib::FecId> : Ringlog::TrivialCodec<Quarn::Fib::FecId, 0x104> {};
