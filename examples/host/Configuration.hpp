#ifndef NIMHOST_CONFIGURATION_HPP
#define NIMHOST_CONFIGURATION_HPP

#include <dalnim/io/Properties.hpp>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

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
    /** Requests a second, 0 for as many as it can. */
    std::uint32_t rate;
    /** How many of its requests may be under way. */
    std::uint32_t queue;
    /** Whether it waits for room in the pool. */
    bool block;
    /** Every so many requests one is answered at DEBUG, 0 for none. */
    std::uint32_t debugEvery;
    /** Every so many requests one fails, 0 for none. */
    std::uint32_t failEvery;
    /** After so many requests the source throws, 0 for never. */
    std::uint32_t breakAfter;
};

/** The workers. */
struct PoolSettings
{
    std::uint32_t threads;
    /** How many requests may wait for a worker. */
    std::uint32_t pending;
};

/** A plug-in's library and what its instance is told. */
struct PluginSettings
{
    std::string library;
    std::unique_ptr<const com::kor::dal::nim::io::Properties> settings;
};

/** The host's configuration, read from a properties file. */
class Configuration
{
public:
    /** Reads the file and what it includes. Throws ConfigurationError. */
    explicit Configuration(const std::string& file);

    /**
     * Configures the log. Called again, it replaces the module filter and the severity mask, which
     * would otherwise add up, and opens the file anew, in case that somebody has moved it away. Throws
     * ConfigurationError.
     */
    void configureLog() const;

    /** The settings of the source of that name. Throws ConfigurationError. */
    SourceSettings source(const std::string& name) const;
    /** Throws ConfigurationError. */
    PoolSettings pool() const;

    /** The names of the plug-ins that answer requests. Throws ConfigurationError. */
    std::vector<std::string> plugins() const;
    /** Those of the plug-ins that are loaded ahead of the log's configuration, and stay. */
    std::vector<std::string> adapters() const;
    /** What belongs to the plug-in of that name. */
    PluginSettings plugin(const std::string& name) const;

    /** What the loader had to say, a line each. */
    const std::string& warnings() const
    {
        return loadWarnings;
    }

private:
    void anchorLogDirectory();
    /** The path; one that is not absolute stands beside the configuration. */
    std::string anchored(const std::string& file) const;
    std::vector<std::string> names(const char* key) const;

    std::string path;
    std::string loadWarnings;
    com::kor::dal::nim::io::Properties properties;
};

}

#endif
