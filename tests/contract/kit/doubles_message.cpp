// Doubles of libquorl's messages and fields.
#include "kit/doubles.h"

using contract::out;

// ---- whole messages ----
QUORL_DOUBLE(quorl_status, quorlMsg_Create, (quorlMsg * message), (message), (out(message)))
QUORL_DOUBLE(quorl_status, quorlMsg_CreateFromBytes, (quorlMsg * message, const void* bytes), (message, bytes),
             (out(message), contract::wire(bytes)))
QUORL_DOUBLE(quorl_status, quorlMsg_CreateCopy, (quorlMsg message, quorlMsg* copy), (message, copy),
             (message, out(copy)))
QUORL_DOUBLE(quorl_status, quorlMsg_GetEnvelope, (quorlMsg message, quorlMsg* envelope), (message, envelope),
             (message, out(envelope)))
QUORL_DOUBLE(quorl_status, quorlMsg_Destroy, (quorlMsg message), (message), (message))
QUORL_DOUBLE(quorl_status, quorlMsg_Detach, (quorlMsg message), (message), (message))
QUORL_DOUBLE(quorl_status, quorlMsg_Reset, (quorlMsg message), (message), (message))
QUORL_DOUBLE(quorl_status, quorlMsg_GetClosure, (quorlMsg message, void** closure), (message, closure),
             (message, out(closure)))
QUORL_DOUBLE(quorl_status, quorlMsg_SetSendSubject, (quorlMsg message, const char* subject), (message, subject),
             (message, subject))
QUORL_DOUBLE(quorl_status, quorlMsg_GetSendSubject, (quorlMsg message, const char** subject), (message, subject),
             (message, out(subject)))
QUORL_DOUBLE(quorl_status, quorlMsg_SetReplySubject, (quorlMsg message, const char* subject), (message, subject),
             (message, subject))
QUORL_DOUBLE(quorl_status, quorlMsg_GetReplySubject, (quorlMsg message, const char** subject), (message, subject),
             (message, out(subject)))
QUORL_DOUBLE(quorl_status, quorlMsg_ConvertToString, (quorlMsg message, const char** string), (message, string),
             (message, out(string)))
QUORL_DOUBLE(quorl_status, quorlMsg_GetNumFields, (quorlMsg message, quorl_u32* count), (message, count),
             (message, out(count)))
QUORL_DOUBLE(quorl_status, quorlMsg_GetByteSize, (quorlMsg message, quorl_u32* size), (message, size),
             (message, out(size)))
QUORL_DOUBLE(quorl_status, quorlMsg_GetAsBytes, (quorlMsg message, const void** bytes), (message, bytes),
             (message, out(bytes)))
QUORL_DOUBLE(quorl_status, quorlMsg_MarkReferences, (quorlMsg message), (message), (message))
QUORL_DOUBLE(quorl_status, quorlMsg_ClearReferences, (quorlMsg message), (message), (message))

// ---- fields ----
QUORL_DOUBLE(quorl_status, quorlMsg_GetFieldByIndex, (quorlMsg message, quorlMsgField* field, quorl_u32 index),
             (message, field, index), (message, out(field), index))
QUORL_DOUBLE(quorl_status, _quorlMsg_GetFieldIndexAndType,
             (quorlMsg message, const char* name, quorl_u64* where, quorl_u16 id), (message, name, where, id),
             (message, name, out(where), id))
QUORL_DOUBLE(quorl_status, _quorlMsg_GetFieldInstanceIndexAndType,
             (quorlMsg message, const char* name, quorl_u32 instance, quorl_u64* where),
             (message, name, instance, where), (message, name, instance, out(where)))
QUORL_DOUBLE(quorl_status, quorlMsg_AddField, (quorlMsg message, quorlMsgField* field), (message, field),
             (message, contract::field(field)))
QUORL_DOUBLE(quorl_status, quorlMsg_UpdateField, (quorlMsg message, quorlMsgField* field), (message, field),
             (message, contract::field(field)))
QUORL_DOUBLE(quorl_status, quorlMsg_RemoveFieldEx, (quorlMsg message, const char* name, quorl_u16 id),
             (message, name, id), (message, name, id))
QUORL_DOUBLE(quorl_status, quorlMsg_RemoveFieldInstance, (quorlMsg message, const char* name, quorl_u32 instance),
             (message, name, instance), (message, name, instance))
QUORL_DOUBLE(quorl_status, quorlMsg_SetOpaqueHandlers, (quorl_u8 type), (type), (type))

#define VALUE(T, type)                                                                                                 \
    QUORL_DOUBLE(quorl_status, quorlMsg_Add##T##Ex, (quorlMsg message, const char* name, type value, quorl_u16 id),    \
                 (message, name, value, id), (message, name, value, id))                                               \
    QUORL_DOUBLE(quorl_status, quorlMsg_Update##T##Ex, (quorlMsg message, const char* name, type value, quorl_u16 id), \
                 (message, name, value, id), (message, name, value, id))
#define SCALAR(T, type)                                                                                              \
    VALUE(T, type)                                                                                                   \
    QUORL_DOUBLE(quorl_status, quorlMsg_Get##T##Ex, (quorlMsg message, const char* name, type* value, quorl_u16 id), \
                 (message, name, value, id), (message, name, out(value), id))
SCALAR(Bool, quorl_bool)
SCALAR(I8, quorl_i8)
SCALAR(U8, quorl_u8)
SCALAR(I16, quorl_i16)
SCALAR(U16, quorl_u16)
SCALAR(I32, quorl_i32)
SCALAR(U32, quorl_u32)
SCALAR(I64, quorl_i64)
SCALAR(U64, quorl_u64)
SCALAR(F32, quorl_f32)
SCALAR(F64, quorl_f64)
SCALAR(IPPort16, quorl_ipport16)
SCALAR(IPAddr32, quorl_ipaddr32)
VALUE(Msg, quorlMsg)
VALUE(String, const char*)

#define BY_CONTENT(function, type, written)                                                              \
    QUORL_DOUBLE(quorl_status, function, (quorlMsg message, const char* name, type value, quorl_u16 id), \
                 (message, name, value, id), (message, name, written(value), id))
BY_CONTENT(quorlMsg_AddDateTimeEx, const quorlMsgDateTime*, contract::point)
BY_CONTENT(quorlMsg_UpdateDateTimeEx, const quorlMsgDateTime*, contract::point)

#define SIZED(function, type, written)                                                             \
    QUORL_DOUBLE(quorl_status, function,                                                           \
                 (quorlMsg message, const char* name, type values, quorl_u32 count, quorl_u16 id), \
                 (message, name, values, count, id), (message, name, written(values, count), count, id))
SIZED(quorlMsg_AddOpaqueEx, const void*, contract::block)
SIZED(quorlMsg_UpdateOpaqueEx, const void*, contract::block)
SIZED(quorlMsg_AddXmlEx, const void*, contract::block)
SIZED(quorlMsg_UpdateXmlEx, const void*, contract::block)

#define ARRAYS(T, type)                                    \
    SIZED(quorlMsg_Add##T##ArrayEx, type, contract::array) \
    SIZED(quorlMsg_Update##T##ArrayEx, type, contract::array)
ARRAYS(I8, const quorl_i8*)
ARRAYS(U8, const quorl_u8*)
ARRAYS(I16, const quorl_i16*)
ARRAYS(U16, const quorl_u16*)
ARRAYS(I32, const quorl_i32*)
ARRAYS(U32, const quorl_u32*)
ARRAYS(I64, const quorl_i64*)
ARRAYS(U64, const quorl_u64*)
ARRAYS(F32, const quorl_f32*)
ARRAYS(F64, const quorl_f64*)
ARRAYS(String, const char**)
ARRAYS(Msg, const quorlMsg*)
