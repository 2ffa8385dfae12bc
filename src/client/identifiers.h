/// The two passes that convert identifiers: JSON integers on the wire, decimal text in the client.
/// Both work in place.
///
/// The passes are not inverses: a "bots" member that is a single integer becomes text on reading
/// and stays text on writing. Kept for compatibility.
#pragma once

#include "platform/json.h"

namespace csi_receiver {

/// The reading pass, for every message that arrives. `object` must be an object, `memory` its
/// document's.
void identifiers_to_text(json::value& object, json::allocator& memory);

/// The writing pass, for every object that is sent. Text without leading digits becomes 0.
void identifiers_to_numbers(json::value& object);

} // namespace csi_receiver
