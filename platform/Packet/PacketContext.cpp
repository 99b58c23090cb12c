#include "Packet/PacketContext.h"
