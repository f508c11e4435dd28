#ifndef DALNIM_IO_CONFIG_HPP
#define DALNIM_IO_CONFIG_HPP

#include <dalnim/String.hpp>
#include <dalnim/io/Properties.hpp>
#include <dalnim/io/nsdefs.hpp>
#include <qv/pmx/api.h>

namespace com::kor::dal::nim::io {

/**
 * One configuration table for several named instances. A key is a setting of one instance if it begins
 * with the instance's name and a slash; a default for all of them if it begins with a star and a
 * slash; and a default of lower rank if it begins with a bare slash. Also, the spelling of boolean
 * settings.
 *
 * Nothing in an object ever changes: any number of threads may use it.
 */
class DALNIM_API Config
{
public:
    static constexpr const char CLASS_NAME[] = "Config";
    /** How a boolean setting is spelled that holds. */
    static constexpr const char VAL_TRUE[] = "true";
    /** How a boolean setting is spelled that does not hold. */
    static constexpr const char VAL_FALSE[] = "false";

    /** VAL_TRUE and VAL_FALSE, to compare settings with. */
    const String STR_TRUE;
    /** VAL_FALSE, likewise. */
    const String STR_FALSE;

    Config();
    /** A copy, equal to every other one. */
    Config(const Config& r);
    ~Config();
    Config& operator=(const Config&) = delete;

    /**
     * The settings of the instance `specific_id`, under their keys without the prefix. Keys of other
     * instances and keys without a prefix are left out.
     *
     * @return a new table, which the caller deletes; empty if nothing applies.
     * @throws std::invalid_argument  "empty key not allowed", when a key is nothing but a prefix.
     */
    static Properties* getDefaultedProperties(const Properties& source, const String& specific_id,
                                              bool deep_copy = false);
};

}

#endif
