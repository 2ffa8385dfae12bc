#include "client/client_state.h"

#include "daemon/signals.h"

namespace csi_receiver {

bool client_state::shutting_down() const {
    return stop || termination_pending();
}

} // namespace csi_receiver
