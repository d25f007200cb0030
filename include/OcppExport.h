/* Export and linkage macros shared by every public header of the library. */
#ifndef OCPP_EXPORT_H
#define OCPP_EXPORT_H

#if defined(__GNUC__)
#define OCPP_API __attribute__((visibility("default")))
#define OCPP_PACKED __attribute__((packed))
#else
#define OCPP_API
#define OCPP_PACKED
#endif

#ifdef __cplusplus
#define OCPP_EXTERN_C_BEGIN extern "C" {
#define OCPP_EXTERN_C_END }
#define OCPP_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define OCPP_EXTERN_C_BEGIN
#define OCPP_EXTERN_C_END
#define OCPP_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

#endif
