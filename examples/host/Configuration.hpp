#ifndef NIMHOST_CONFIGURATION_HPP
#define NIMHOST_CONFIGURATION_HPP

#include <dalnim/io/Properties.hpp>

#include <chrono>
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

/** The path of a plug-in's library, and the settings of its instance. */
struct PluginSettings
{
    std::string library;
    std::shared_ptr<const com::kor::dal::nim::io::Properties> settings;
};

bool operator==(const PluginSettings& left, const PluginSettings& right);

/** A setting that is read at the start only, and the value that another configuration has for it. */
struct RestartSetting
{
    std::string name;
    std::string inEffect;
    std::string wanted;
};

/** The host's configuration, read from a properties file. */
class Configuration
{
public:
    /** When a configuration is read. */
    enum Time {
        /** The file may be a pipe, whose writer is waited for. */
        AT_START,
        /** Nothing may hold up the run: only a regular file is read, and a log that would wait for its reader
           is refused. */
        WHILE_RUNNING
    };

    /** Reads the file and what it includes. Throws ConfigurationError. */
    Configuration(const std::string& file, Time time);

    /**
     * Checks every setting of the host, its pool, its plug-ins and the named sources. Throws
     * ConfigurationError for the first that is bad.
     */
    void check(const std::vector<std::string>& sources) const;
    /** All settings. */
    const com::kor::dal::nim::io::Properties& settings() const;
    /** The path that the log will have; empty for a stream. */
    std::string logPath() const;
    /** Configures the log as LogSettings::apply() does: completely or not at all. Throws ConfigurationError.
     */
    void configureLog() const;
    /** What differs from `fresh` and is only read at the start. */
    std::vector<RestartSetting> restartSettings(const Configuration& fresh,
                                                const std::vector<std::string>& sources) const;

    /** The settings of the source of that name. Throws ConfigurationError. */
    SourceSettings source(const std::string& name) const;
    /** Throws ConfigurationError. */
    PoolSettings pool() const;

    /** How long an orderly end may take; 0 for no limit, also if it is not set. Throws ConfigurationError. */
    std::chrono::seconds endLimit() const;

    /** The names of the plug-ins that answer requests. Throws ConfigurationError. */
    std::vector<std::string> plugins() const;
    /** The names of the plug-ins that are loaded before the log is configured, and stay. */
    std::vector<std::string> adapters() const;
    /** What belongs to the plug-in of that name. */
    PluginSettings plugin(const std::string& name) const;

    /** Warnings: of the loader, and about settings of the host and the pool that do not exist; a line each.
     */
    std::string warnings() const;

private:
    void anchorLogDirectory();
    /** The path; one that is not absolute stands beside the configuration. */
    std::string anchored(const std::string& file) const;
    std::vector<std::string> names(const char* key) const;

    std::string path;
    Time readAt;
    std::string loadWarnings;
    com::kor::dal::nim::io::Properties properties;
};

}

#endif
