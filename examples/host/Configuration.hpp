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

/** A configuration that cannot be read or is invalid. The message is one line. */
class ConfigurationError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/** The settings of a source. */
struct SourceSettings
{
    /** Requests per second; 0 means as many as possible. */
    std::uint32_t rate;
    /** Maximum number of its unanswered requests. */
    std::uint32_t queue;
    /** Whether it waits if the pool is full. */
    bool block;
    /** Every n-th request is logged at DEBUG; 0 means none. */
    std::uint32_t debugEvery;
    /** Every n-th request fails; 0 means none. */
    std::uint32_t failEvery;
    /** Number of requests after which the source throws; 0 means never. */
    std::uint32_t breakAfter;
};

/** The settings of the thread pool. */
struct PoolSettings
{
    std::uint32_t threads;
    /** Maximum number of requests that wait for a worker. */
    std::uint32_t pending;
};

/** The path of a plug-in's library, and the settings of its instance. */
struct PluginSettings
{
    std::string library;
    std::shared_ptr<const com::kor::dal::nim::io::Properties> settings;
};

bool operator==(const PluginSettings& left, const PluginSettings& right);

/** A setting that is read only at the start, and has another value in a new configuration. */
struct RestartSetting
{
    std::string name;
    std::string current;
    std::string requested;
};

/** The host's configuration, read from a properties file. */
class Configuration
{
public:
    /** When a configuration is read. */
    enum Time {
        /** The file may be a pipe; the constructor waits for its writer. */
        AT_START,
        /** Must not block: the file must be regular, and a log whose opening would block is rejected. */
        WHILE_RUNNING
    };

    /**
     * Reads the file and the files that it includes.
     * @throws ConfigurationError if one of them cannot be read or is invalid
     */
    Configuration(const std::string& file, Time time);

    /**
     * Checks all settings of the host, the pool, the plug-ins and the named sources.
     * @throws ConfigurationError for the first invalid setting
     */
    void check(const std::vector<std::string>& sources) const;
    /** Returns all settings. */
    const com::kor::dal::nim::io::Properties& settings() const;
    /** Returns the path that the log will have, or an empty string for a stream. */
    std::string logPath() const;
    /**
     * Applies all log settings, or none; see LogSettings::apply().
     * @throws ConfigurationError if they cannot be applied
     */
    void configureLog() const;
    /** Returns the settings that differ from `fresh` and are read only at the start. */
    std::vector<RestartSetting> restartSettings(const Configuration& fresh,
                                                const std::vector<std::string>& sources) const;

    /**
     * Returns the settings of a source. This and the functions below throw ConfigurationError if one is
     * invalid.
     */
    SourceSettings source(const std::string& name) const;
    /** Returns the settings of the thread pool. */
    PoolSettings pool() const;

    /** Returns the time limit of an orderly shutdown; 0 (the default) means no limit. */
    std::chrono::seconds endLimit() const;

    /** Returns the time after which a request or a queue is logged as stuck; 0 (the default) means never. */
    std::chrono::seconds stuckLimit() const;

    /** Returns the names of the plug-ins that answer requests. */
    std::vector<std::string> plugins() const;
    /**
     * Returns the names of the plug-ins that are loaded before the log is configured, and are never unloaded.
     */
    std::vector<std::string> adapters() const;
    /** Returns the library and the settings of a plug-in. */
    PluginSettings plugin(const std::string& name) const;

    /** Returns warnings of the load, and about unknown settings of the host and the pool, one per line. */
    std::string warnings() const;

private:
    void resolveLogDirectory();
    std::chrono::seconds optionalSeconds(const char* key) const;
    /** Returns a path; relative paths are relative to the directory of the configuration. */
    std::string resolvePath(const std::string& file) const;
    std::vector<std::string> names(const char* key) const;

    std::string path;
    Time readAt;
    std::string loadWarnings;
    com::kor::dal::nim::io::Properties properties;
};

}

#endif
