#include "Ringlog/ValueCodecs.h"

VELT_RINGLOG_CODEC(Lumo::IntfId);
VELT_RINGLOG_CODEC(Lumo::EthAddr);
VELT_RINGLOG_CODEC(Lumo::IpGenAddr);
VELT_RINGLOG_CODEC(Lumo::IpGenPrefix);
VELT_RINGLOG_CODEC(Quarn::Fib::FecId);
