// The port-name table, shared by the port lookups and the server-name parser. Internal.
#ifndef CORVEL_NET_PORTNAME_H_
#define CORVEL_NET_PORTNAME_H_

#include "corvel/arr.h"

namespace corvel {
namespace net {

// The table read from "orbserver_names" on first use, kept for the life of the process:
// port name -> its value's text, or null for an entry that is not a string. Never changed
// after it is read, so callers may read it from any thread without a lock.
Arr *PortTable();

}  // namespace net
}  // namespace corvel

#endif  // CORVEL_NET_PORTNAME_H_
