# Our own code builds with strict warnings; third-party sources link an interface
# target without them.
add_library(vst_adapter_warnings INTERFACE)
target_compile_options(vst_adapter_warnings INTERFACE -Wall -Wextra -Werror)
