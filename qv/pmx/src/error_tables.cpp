#include <qv/pmx/errors.h>
#include <qv/pmx/init.h>

// The families of the platform. Each has the block of 256 error numbers that starts with its first one.
// Numbers that are missing here are retired, or belong to other libraries.

namespace {

constexpr qv_error_message_t RTLD_MESSAGES[] = {
    {49408, "Library cannot be loaded"},
    {49409, "Symbol not found in library"},
    {49410, "Library cannot be unloaded"},
};

constexpr qv_error_message_t DNS_MESSAGES[] = {
    {49664, "Host name cannot be resolved"},
    {49665, "Name server cannot be reached"},
};

constexpr qv_error_message_t PIPE_MESSAGES[] = {
    {49920, "Pipe cannot be created"},
    {49921, "Pipe was closed by its other end"},
};

constexpr qv_error_message_t BNUM_MESSAGES[] = {
    {50176, "Large number is malformed"},
    {50177, "Large number is out of range"},
};

constexpr qv_error_message_t CRPT_MESSAGES[] = {
    {50432, "Encryption failed"},
    {50433, "Decryption failed"},
    {50434, "Key is not valid"},
};

constexpr qv_error_message_t RX_MESSAGES[] = {
    {QV_RX_INDEX_RANGE, "Index out of range"},
    {QV_RX_CONDITION, "Condition does not hold"},
    {QV_RX_NO_ELEMENT, "No such element"},
    {QV_RX_ITERATOR_END, "Iterator used past its end"},
    {QV_RX_SET_CHANGED, "Set was modified during an iteration"},
    {QV_RX_STD_EXCEPTION, "Exception"},
    {QV_RX_UNKNOWN_EXCEPTION, "Exception of unknown type"},
    {QV_RX_BAD_PATTERN, "Bad pattern"},
};

constexpr qv_error_message_t UCNF_MESSAGES[] = {
    {51712, "Configuration entry not found"},
    {51713, "Configuration entry is malformed"},
};

constexpr qv_error_message_t AUTH_MESSAGES[] = {
    {51968, "Authentication failed"},
    {51969, "Authorization refused"},
};

constexpr qv_error_message_t MAPP_MESSAGES[] = {
    {52224, "File cannot be mapped into memory"},
    {52225, "Mapping is out of range"},
};

constexpr qv_error_message_t MISC_MESSAGES[] = {
    {52480, "Path cannot be resolved"},
    {52481, "Internal error"},
};

constexpr qv_error_message_t JVMI_MESSAGES[] = {
    {52736, "Java virtual machine not found"},
    {52737, "Java virtual machine cannot be started"},
};

constexpr qv_error_message_t SGNL_MESSAGES[] = {
    {52992, "Signal handler cannot be installed"},
    {52993, "Interrupted by a signal"},
};

template <size_t N>
constexpr qv_error_table_t makeTable(const char* family, const qv_error_message_t (&messages)[N])
{
    return {family, messages, N};
}

constexpr qv_error_table_t RTLD_TABLE = makeTable("RTLD", RTLD_MESSAGES);
constexpr qv_error_table_t DNS_TABLE = makeTable("DNS", DNS_MESSAGES);
constexpr qv_error_table_t PIPE_TABLE = makeTable("PIPE", PIPE_MESSAGES);
constexpr qv_error_table_t BNUM_TABLE = makeTable("BNUM", BNUM_MESSAGES);
constexpr qv_error_table_t CRPT_TABLE = makeTable("CRPT", CRPT_MESSAGES);
constexpr qv_error_table_t RX_TABLE = makeTable("RX", RX_MESSAGES);
constexpr qv_error_table_t UCNF_TABLE = makeTable("UCNF", UCNF_MESSAGES);
constexpr qv_error_table_t AUTH_TABLE = makeTable("AUTH", AUTH_MESSAGES);
constexpr qv_error_table_t MAPP_TABLE = makeTable("MAPP", MAPP_MESSAGES);
constexpr qv_error_table_t MISC_TABLE = makeTable("MISC", MISC_MESSAGES);
constexpr qv_error_table_t JVMI_TABLE = makeTable("JVMI", JVMI_MESSAGES);
constexpr qv_error_table_t SGNL_TABLE = makeTable("SGNL", SGNL_MESSAGES);

}

int _qv_RTLD_error_table_initializer_done = 0;
int _qv_DNS_error_table_initializer_done = 0;
int _qv_PIPE_error_table_initializer_done = 0;
int _qv_BNUM_error_table_initializer_done = 0;
int _qv_CRPT_error_table_initializer_done = 0;
int _qv_RX_error_table_initializer_done = 0;
int _qv_UCNF_error_table_initializer_done = 0;
int _qv_AUTH_error_table_initializer_done = 0;
int _qv_MAPP_error_table_initializer_done = 0;
int _qv_MISC_error_table_initializer_done = 0;
int _qv_JVMI_error_table_initializer_done = 0;
int _qv_SGNL_error_table_initializer_done = 0;

// The status is ignored: if a table cannot be registered, only its messages are missing.

void _qv_RTLD_error_table_init(void)
{
    qv_si_error_table_add(&RTLD_TABLE);
}

void _qv_DNS_error_table_init(void)
{
    qv_si_error_table_add(&DNS_TABLE);
}

void _qv_PIPE_error_table_init(void)
{
    qv_si_error_table_add(&PIPE_TABLE);
}

void _qv_BNUM_error_table_init(void)
{
    qv_si_error_table_add(&BNUM_TABLE);
}

void _qv_CRPT_error_table_init(void)
{
    qv_si_error_table_add(&CRPT_TABLE);
}

void _qv_RX_error_table_init(void)
{
    qv_si_error_table_add(&RX_TABLE);
}

void _qv_UCNF_error_table_init(void)
{
    qv_si_error_table_add(&UCNF_TABLE);
}

void _qv_AUTH_error_table_init(void)
{
    qv_si_error_table_add(&AUTH_TABLE);
}

void _qv_MAPP_error_table_init(void)
{
    qv_si_error_table_add(&MAPP_TABLE);
}

void _qv_MISC_error_table_init(void)
{
    qv_si_error_table_add(&MISC_TABLE);
}

void _qv_JVMI_error_table_init(void)
{
    qv_si_error_table_add(&JVMI_TABLE);
}

void _qv_SGNL_error_table_init(void)
{
    qv_si_error_table_add(&SGNL_TABLE);
}

namespace {

// For programs that contain the static library, and none of the sources that register the tables.
const qv::ErrorTableInitializer INITIALIZERS[] = {
    {_qv_RTLD_error_table_initializer_done, _qv_RTLD_error_table_init},
    {_qv_DNS_error_table_initializer_done, _qv_DNS_error_table_init},
    {_qv_PIPE_error_table_initializer_done, _qv_PIPE_error_table_init},
    {_qv_BNUM_error_table_initializer_done, _qv_BNUM_error_table_init},
    {_qv_CRPT_error_table_initializer_done, _qv_CRPT_error_table_init},
    {_qv_RX_error_table_initializer_done, _qv_RX_error_table_init},
    {_qv_UCNF_error_table_initializer_done, _qv_UCNF_error_table_init},
    {_qv_AUTH_error_table_initializer_done, _qv_AUTH_error_table_init},
    {_qv_MAPP_error_table_initializer_done, _qv_MAPP_error_table_init},
    {_qv_MISC_error_table_initializer_done, _qv_MISC_error_table_init},
    {_qv_JVMI_error_table_initializer_done, _qv_JVMI_error_table_init},
    {_qv_SGNL_error_table_initializer_done, _qv_SGNL_error_table_init},
};

}
