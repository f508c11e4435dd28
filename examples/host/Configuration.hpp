#ifndef NIMHOST_CONFIGURATION_HPP
#define NIMHOST_CONFIGURATION_HPP

#include <dalnim/io/Properties.hpp>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace nimhost {

/** A configuration that cannot be read or has a bad value: one line for standard error. */
class ConfigurationError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/** How one source behaves. */
struct SourceSettings
{
    /** Records a second, 0 for as many as it can. */
    std::uint32_t rate;
    /** Every so many records one stands at DEBUG, 0 for none. */
    std::uint32_t debugEvery;
};

/** The host's configuration, read from a properties file. */
class Configuration
{
public:
    /** Reads the file and what it includes. Throws ConfigurationError. */
    explicit Configuration(const std::string& file);

    /**
     * Configures the log. Called again, it replaces the module filter and the severity mask, which
     * would otherwise add up. Throws ConfigurationError.
     */
    void configureLog() const;

    /** The settings of the source of that name. Throws ConfigurationError. */
    SourceSettings source(const std::string& name) const;

    /** What the loader had to say, a line each. */
    const std::string& warnings() const
    {
        return loadWarnings;
    }

private:
    void anchorLogDirectory();

    std::string path;
    std::string loadWarnings;
    com::kor::dal::nim::io::Properties properties;
};

}

#endif
