#include "threads/thread_start.h"

#include "core/exceptions.h"

namespace orl {

void throw_thread_refused(int code) {
  throw SystemException("start_thread()",
                        "Unable to start a thread: the system gives no more of them, or no memory for their "
                        "stacks.\nUse fewer threads (a smaller task decomposition, -TD, or the framework "
                        "\"none\"), or raise the limits\nthat `ulimit -u` and `ulimit -v` show.",
                        code);
}

}  // namespace orl
