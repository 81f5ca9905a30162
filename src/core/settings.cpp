#include "core/settings.h"

namespace orl {

Settings& settings() {
  // Never destroyed: a thread may print while the process ends.
  static Settings* const record = new Settings;
  return *record;
}

}  // namespace orl
