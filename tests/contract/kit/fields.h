// What rows of field natives share: the field that the library answers with, the index convention, the reference bracket.
#ifndef QUORL_CONTRACT_FIELDS_H
#define QUORL_CONTRACT_FIELDS_H

#include <string>
#include <utility>
#include <vector>

#include "kit/contract.h"

namespace contract {

inline const std::string mark_line = "quorlMsg_MarkReferences(" + message_text + ")";
inline const std::string clear_line = "quorlMsg_ClearReferences(" + message_text + ")";

inline std::string get_field_line(quorl_u32 index) {
    return "quorlMsg_GetFieldByIndex(" + message_text + ", &, " + std::to_string(index) + ")";
}

// A field as rows describe it; what they leave out is zero.
struct FieldAnswer {
    const char* name = nullptr;
    quorl_u32 size = 0;
    quorl_u32 count = 0;
    quorlLocalData data = {};
    quorl_u16 id = 0;
    quorl_u8 type = 0;
};

inline void programme_field(const FieldAnswer& answer) {
    when<&quorlMsg_GetFieldByIndex>().does = [answer](quorlMsg, quorlMsgField* field, quorl_u32) {
        *field = {answer.name, answer.size, answer.count, answer.data, answer.id, answer.type};
        return QUORL_OK;
    };
}

// An index as Java gives it, and its low 16 bits.
inline const std::vector<std::pair<jint, quorl_u32>>& index_cases() {
    static const std::vector<std::pair<jint, quorl_u32>> cases = {{0, 0},           {1, 1},           {0x7FFF, 0x7FFF},
                                                                  {0x8000, 0x8000}, {0xFFFF, 0xFFFF}, {0x10000, 0},
                                                                  {0x10003, 3},     {-1, 0xFFFF},     {INT32_MIN, 0}};
    return cases;
}

}  // namespace contract

#endif
