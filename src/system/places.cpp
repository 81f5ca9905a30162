#include "system/places.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "core/settings.h"

namespace orl {
namespace {

bool exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

bool is_installed(const std::string& exe_dir) {
  return exe_dir.ends_with("/bin/") && exists(exe_dir + "../share/orvane");
}

bool is_absolute(const char* path) { return path != nullptr && path[0] == '/'; }

}  // namespace

std::string SettingsPlaces::path_of(const std::string& name) const {
  if (!own.empty() && exists(own + name)) return own + name;
  if (!shared.empty() && exists(shared + name)) return shared + name;
  return own.empty() ? "" : own + name;
}

SettingsPlaces settings_places(const std::string& exe_dir, const std::string& root,
                               const char* xdg_config_home, const char* home) {
  if (!is_installed(exe_dir)) return {exe_dir, ""};
  const std::string shared = root + "etc/orvane/";
  if (is_absolute(xdg_config_home)) return {std::string(xdg_config_home) + "/orvane/", shared};
  if (is_absolute(home)) return {std::string(home) + "/.config/orvane/", shared};
  return {"", shared};
}

SettingsPlaces settings_places() {
  return settings_places(settings().exe_dir, "/", std::getenv("XDG_CONFIG_HOME"), std::getenv("HOME"));
}

}  // namespace orl
