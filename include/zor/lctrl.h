/*
 * Login control: asks the service that counts failed logins and keeps the forbidden list. The records are the
 * service's; here they are opaque blocks of fixed size.
 *
 * Conventions: a request waits 4000 ms for its reply and is then sent once more after a line on standard
 * output. Its result buffer is written only when the reply has a body; a reply shorter than the result is filled with
 * zeros. Statuses: 0, one of ZOR_LCTRL_E_, or that of the bus.
 */
#ifndef ZOR_LCTRL_H
#define ZOR_LCTRL_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* Statuses. Used with ZOR_LCTRLAPI_Login, ZOR_LCTRLAPI_Check, ZOR_LCTRLAPI_SetMaxFailedTimes and
   ZOR_LCTRLAPI_GetForbiddenRound. */
#define ZOR_LCTRL_E_ARGUMENT UINT32_C(0x2CF0000)    /* a null pointer */
#define ZOR_LCTRL_E_EMPTY_REPLY UINT32_C(0x2CF0001) /* the reply carried no body */

/* Message types. Used with ZOR_LCTRLAPI_Login, ZOR_LCTRLAPI_Check, ZOR_LCTRLAPI_SetMaxFailedTimes,
   ZOR_LCTRLAPI_ClearForbiddenList and ZOR_LCTRLAPI_GetForbiddenRound. */
#define ZOR_LCTRL_LOGIN UINT32_C(0x2CF01)
#define ZOR_LCTRL_CHECK UINT32_C(0x2CF02)
#define ZOR_LCTRL_SET_MAX_FAILED UINT32_C(0x2CF03)
#define ZOR_LCTRL_CLEAR_FORBIDDEN UINT32_C(0x2CF04)
#define ZOR_LCTRL_FORBIDDEN_ROUND UINT32_C(0x2CF05)

/* Sizes of requests and results, in bytes. Used with ZOR_LCTRLAPI_Login, ZOR_LCTRLAPI_Check,
   ZOR_LCTRLAPI_SetMaxFailedTimes, ZOR_LCTRLAPI_ClearForbiddenList and ZOR_LCTRLAPI_GetForbiddenRound. */
#define ZOR_LCTRL_LOGIN_SIZE 200u
#define ZOR_LCTRL_RESULT_SIZE 20u
#define ZOR_LCTRL_MAX_FAILED_SIZE 8u
#define ZOR_LCTRL_CLEAR_SIZE 4u
#define ZOR_LCTRL_ROUND_SIZE 12u
#define ZOR_LCTRL_ROUND_RESULT_SIZE 8u

/* Reports a login attempt: 200 bytes of request, 20 bytes of result. */
ZOR_API uint32_t ZOR_LCTRLAPI_Login(const void *request, void *result);

/* Asks whether a login may proceed: 200 bytes of request, 20 bytes of result. */
ZOR_API uint32_t ZOR_LCTRLAPI_Check(const void *request, void *result);

/* Sets how many failed attempts are allowed: 8 bytes of setting. Returns the status of the send. */
ZOR_API uint32_t ZOR_LCTRLAPI_SetMaxFailedTimes(const void *setting);

/* Clears the forbidden list; the value is the service's. */
ZOR_API void ZOR_LCTRLAPI_ClearForbiddenList(uint32_t value);

/* Asks for the forbidden round: 12 bytes of request, 8 bytes of result. */
ZOR_API uint32_t ZOR_LCTRLAPI_GetForbiddenRound(const void *request, void *result);

/* The wait before another attempt, 0 to 10 in the service's unit, from parameter 0x6180D104 of the configuration
   store. 0 when it cannot be read; a stored value above 10 counts as 0, not as 10. */
ZOR_API uint32_t ZOR_LCTRLAPI_LoginWaitTime(void);

ZOR_END_DECLS

#endif
