#include "core/event_log.h"

#include <ctime>

namespace orl {

void EventLog::add(std::string_view name) {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char date[64];
  text_.append(date, std::strftime(date, sizeof date, "%a %b %e %H:%M:%S %Y", &local));
  text_.append("    ").append(name).append("\r\n");
}

void EventLog::add_line(std::string_view label, std::string_view value) {
  text_.append(label).append(value).append("\r\n");
}

}  // namespace orl
