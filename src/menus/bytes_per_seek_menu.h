// The prompt for "Bytes/Seek".
#pragma once

#include "arrays/bytes_per_seek.h"

namespace orl {

/// Explains the setting and asks for it; an empty line keeps it, 0 brings the default back. Throws
/// InvalidParametersException for a size that cannot be; nothing has changed then.
void ask_bytes_per_seek(BytesPerSeek& setting);

}  // namespace orl
