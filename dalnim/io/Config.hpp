#ifndef DALNIM_IO_CONFIG_HPP
#define DALNIM_IO_CONFIG_HPP

#include <dalnim/String.hpp>
#include <dalnim/io/Properties.hpp>
#include <dalnim/io/nsdefs.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::io {

/**
 * Extracts the settings of one instance from a configuration table of several. A key that begins with the
 * name of an instance and "/" is a setting of that instance. A key that begins with "*" and "/" is a default
 * for all instances, and one that begins with "/" is a default of lower precedence. The class also defines
 * the spelling of boolean settings.
 *
 * Thread safety: objects are immutable; any number of threads may use one concurrently.
 */
class DALNIM_API Config
{
public:
    static constexpr const char CLASS_NAME[] = "Config";
    /** The spelling of a boolean setting that is true. */
    static constexpr const char VAL_TRUE[] = "true";
    /** The spelling of a boolean setting that is false. */
    static constexpr const char VAL_FALSE[] = "false";

    /** VAL_TRUE as a String, to compare settings with. */
    const String STR_TRUE;
    /** VAL_FALSE as a String, to compare settings with. */
    const String STR_FALSE;

    Config();
    /** All objects are equal. */
    Config(const Config& r);
    ~Config();
    Config& operator=(const Config&) = delete;

    /**
     * Returns the settings of an instance, under their keys without the prefix. Keys of other instances and
     * keys without a prefix are omitted.
     *
     * @param specific_id  the name of the instance
     * @param deep_copy    has no effect
     * @return a new table, which the caller must delete
     * @throws std::invalid_argument  "empty key not allowed", if a key is equal to a prefix
     */
    static Properties* getDefaultedProperties(const Properties& source, const String& specific_id,
                                              bool deep_copy = false);
};

}

#endif
