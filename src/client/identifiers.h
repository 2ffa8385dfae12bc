/// Identifiers travel as JSON integers and are decimal text inside the client: the two passes that
/// turn the one into the other, in place and with the document's own memory.
///
/// The passes are not inverses, and the server's messages depend on that: a "bots" member that is a
/// single integer becomes text on reading and stays text on writing.
#pragma once

#include "platform/json.h"

namespace csi_receiver {

/// The reading pass, for every message that arrives. `object` must be an object.
void identifiers_to_text(json::value& object, json::allocator& memory);

/// The writing pass, for every object that leaves. Text without leading digits becomes 0.
void identifiers_to_numbers(json::value& object);

} // namespace csi_receiver
