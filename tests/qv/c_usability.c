/* Uses the system interface from C: compiled as C11, called by CUsabilityTest. */

#include <qv/pmx.h>

#include <string.h>

/** Returns 0, or the line of the first check that failed. */
int qv_test_from_c(void);

#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            return __LINE__;                                                                                 \
        }                                                                                                    \
    } while (0)

_Static_assert(sizeof(qv_err_t) == 4 && sizeof(qv_bool_t) == 4, "32 bits");
_Static_assert(sizeof(si_int8_t) == 1 && sizeof(si_uint16_t) == 2 && sizeof(si_uint32_t) == 4, "widths");
_Static_assert(sizeof(si_int64_t) == 8 && sizeof(si_uint64_t) == 8 && sizeof(si_timespec_t) == 8, "widths");
_Static_assert(sizeof(ThreadID_t) == 4 && sizeof(si_atomic_t) == 4, "32 bits");

static int check_locks(void)
{
    si_mutex_t mutex;
    si_cond_t cond;
    si_rwlock_t lock = qv_si_rwlock_empty_lock_extern;

    CHECK(qv_si_mutex_init(&mutex, "R") == 0);
    CHECK(qv_si_mutex_lock(&mutex) == 0 && qv_si_mutex_trylock(&mutex) == 0);
    CHECK(qv_si_mutex_unlock(&mutex) == 0 && qv_si_mutex_unlock(&mutex) == 0);
    CHECK(qv_si_mutex_destroy(&mutex) == 0);
    CHECK(qv_si_cond_init(&cond, NULL) == 0);
    CHECK(pthread_cond_signal((pthread_cond_t*)&cond) == 0 && pthread_cond_destroy(&cond.cond) == 0);
    CHECK(qv_si_rw_init(&lock, NULL) == 0);
    CHECK(qv_si_rw_rdlock(&lock) == 0 && qv_si_rw_upgrade(&lock) == 0 && qv_si_rw_unlock(&lock) == 0);
    CHECK(qv_si_rw_wrlock(&lock) == 0 && qv_si_rw_unlock(&lock) == 0);
    CHECK(qv_si_rw_destroy(&lock) == 0);
    return 0;
}

static int check_threads(void)
{
    si_thread_key_t key;
    si_atomic_t counter = 0;

    CHECK(qv_si_init_only_multithreaded() == 0);
    CHECK(qv_si_thread_self() > 0);
    CHECK(qv_si_thread_keycreate(&key, NULL) == 0);
    CHECK(qv_si_thread_setspecific(key, &counter) == 0 && qv_si_thread_getspecific(key) == &counter);
    CHECK(qv_si_atomic_increment(&counter) == 1 && qv_si_atomic_decrement(&counter) == 0);
    return 0;
}

static int check_services(void)
{
    si_timespec_t now;
    struct tm calendar;
    char buffer[4096];
    qv_lhandle_t handle;
    qv_module_list_t list;
    char* text;

    CHECK(qv_si_getpid() > 0);
    CHECK(qv_si_gethostname(buffer, sizeof buffer) == 0);
    CHECK(qv_si_gettime(&now) == 0 && now.seconds > 0);
    CHECK(qv_si_gmtime(0, &calendar) == 0 && calendar.tm_year == 70);
    CHECK(qv_si_localtime(0, &calendar) == 0);
    CHECK(qv_si_isdir("/") == 0);
    CHECK(qv_si_getrealpath("/", sizeof buffer, buffer) == 0 && strcmp(buffer, "/") == 0);
    CHECK(strcmp(qv_si_strerror(51459), "Condition does not hold") == 0);
    CHECK(_qv_RTLD_error_table_initializer_done == 1);
    CHECK(qv_si_library_nload("", &text, &handle) == 0 && text == NULL);
    CHECK(qv_si_module_create_list(&list) == 0);
    CHECK(qv_si_lib_find_symbol(handle, list, "qv_si_panic_internal") != NULL);
    qv_si_module_destroy_list(list);
    CHECK(qv_si_library_unload(handle) == 0);
    return 0;
}

int qv_test_from_c(void)
{
    int line = check_locks();
    if (line == 0) {
        line = check_threads();
    }
    return line != 0 ? line : check_services();
}
