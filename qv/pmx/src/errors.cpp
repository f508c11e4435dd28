#include <qv/pmx/errors.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr size_t MAX_TABLES = 16;

// Filled while the library is loaded, on one thread; constant afterwards.
const qv_error_table_t* tables[MAX_TABLES];
size_t tableCount = 0;

// Nothing else in the runtime layer refers to the source with the tables, which programs would otherwise
// leave in the static library.
[[gnu::used]] constexpr int* LINKED_TABLES = &_qv_RTLD_error_table_initializer_done;

const char* findMessage(const qv_error_table_t& table, qv_err_t code)
{
    const qv_error_message_t* const end = table.messages + table.count;
    const qv_error_message_t* const found =
        std::lower_bound(table.messages, end, code, [](const qv_error_message_t& message, qv_err_t wanted) {
            return message.code < wanted;
        });
    return found != end && found->code == code ? found->text : nullptr;
}

}

const char* qv_si_strerror(qv_err_t code) noexcept
{
    if (const char* const text = strerrordesc_np(code)) {
        return text;
    }
    for (size_t i = 0; i < tableCount; ++i) {
        if (const char* const text = findMessage(*tables[i], code)) {
            return text;
        }
    }
    return nullptr;
}

qv_err_t qv_si_error_table_add(const qv_error_table_t* table) noexcept
{
    if (table == nullptr) {
        return EINVAL;
    }
    if (tableCount == MAX_TABLES) {
        return ENOSPC;
    }
    tables[tableCount++] = table;
    return 0;
}
