// Where the program's own settings stand: environment.cfg and Username.txt.
//
// A program that runs from a folder of its own keeps them beside itself. One that was installed, which is to say that it
// lies in the `bin` of a prefix whose share/orvane is there, keeps them in the user's $XDG_CONFIG_HOME/orvane, by default
// ~/.config/orvane, reads what is not there from /etc/orvane, and writes nothing beside itself.
#pragma once

#include <string>

namespace orl {

/// Folders of settings; each ends with a separator.
struct SettingsPlaces {
  std::string own;     ///< read and written; empty: nowhere, since there is no home
  std::string shared;  ///< read for what `own` has not; empty: nothing is

  /// Path of the file `name`: that in `own`, unless only `shared` has one. Empty when there is no place for it.
  std::string path_of(const std::string& name) const;
};

/// Of the program in the folder `exe_dir`, which ends with a separator. `root` stands for the root of the file system and
/// ends with one too. The last two are the values of XDG_CONFIG_HOME and HOME, null where they are not set; only an
/// absolute one counts.
SettingsPlaces settings_places(const std::string& exe_dir, const std::string& root,
                               const char* xdg_config_home, const char* home);

/// This program's, by settings().exe_dir and the environment.
SettingsPlaces settings_places();

}  // namespace orl
