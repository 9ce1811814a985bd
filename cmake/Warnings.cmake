# Our own code builds with strict warnings; third-party sources link an interface
# target without them. Warnings stop the build only where we ask (the dev and ci presets): a
# packager's compiler may warn where ours does not.
option(VST_ADAPTER_WERROR "Treat warnings in our own code as errors" OFF)
add_library(vst_adapter_warnings INTERFACE)
target_compile_options(vst_adapter_warnings INTERFACE -Wall -Wextra $<$<BOOL:${VST_ADAPTER_WERROR}>:-Werror>)
