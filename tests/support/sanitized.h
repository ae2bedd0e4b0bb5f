// SANDBOX_SANITIZED is there in a build with the address sanitizer.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define SANDBOX_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SANDBOX_SANITIZED 1
#endif
#endif
