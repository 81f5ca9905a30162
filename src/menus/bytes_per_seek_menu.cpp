#include "menus/bytes_per_seek_menu.h"

#include "console/console.h"
#include "console/menu_input.h"

namespace orl {

void ask_bytes_per_seek(BytesPerSeek& setting) {
  console::println(
      "\nThe \"Bytes/Seek\" parameter is a rough measure of the # of bytes that can be\n"
      "read or written sequentially in the same amount of time it takes to seek to\n"
      "a random address on the device.\n\n"
      "Orvane uses the \"Bytes/Seek\" parameter to decide when to choose algorithms\n"
      "that have more disk seeks vs. algorithms that require more bytes of access.\n\n"
      "The default is 1 MB which is then scaled according to the swap configuration.\n",
      'w');
  const u64 bytes = ask_byte_size(
      "Enter the Bytes/Seek: (e.g. 256KB, 2MB, etc...)  0 resets to default value.\n", setting.setting());
  if (bytes == 0)
    setting.reset();
  else
    setting.set(bytes);
}

}  // namespace orl
