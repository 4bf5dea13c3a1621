# The device's own framework, message, log and copy libraries, from its SDK.
if(NOT ACM_PLATFORM_ROOT)
    message(FATAL_ERROR "ACM_PLATFORM=device needs -DACM_PLATFORM_ROOT=<sdk>")
endif()
add_library(kestrel_platform INTERFACE)
target_compile_definitions(kestrel_platform INTERFACE ACM_PLATFORM_DEVICE)
target_include_directories(kestrel_platform SYSTEM INTERFACE ${ACM_PLATFORM_ROOT}/include)
# The host process has loaded these libraries before it loads the service.
target_link_options(kestrel_platform INTERFACE -Wl,--unresolved-symbols=ignore-all)
