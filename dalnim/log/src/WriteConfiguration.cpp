#include <dalnim/dalbase.hpp>

#include <dalnim/log/Write.hpp>

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/SettingsTable.hpp>
#include <dalnim/sys/StackTrack.hpp>

#include <string_view>

namespace com::kor::dal::nim::log {

namespace {

/** Returns the values of all known settings. */
SettingValues knownValues(const io::Properties& opts)
{
    SettingValues values;
    for (const Setting* setting = SettingsTable::begin(); setting != SettingsTable::end(); ++setting) {
        const String& value = opts.getProperty(SettingsTable::key(setting->tag));
        if (!value.empty()) {
            values.emplace(setting->tag, value);
        }
    }
    return values;
}

/** Returns the values of all keys with the prefix of the log's settings, including unknown ones. */
SettingValues allValues(const io::Properties& opts)
{
    const String prefix = SettingsTable::key("");
    SettingValues values;
    for (const auto& [key, value] : opts) {
        if (!value.empty() && key.compare(0, prefix.size(), prefix) == 0) {
            values.emplace(key.substr(prefix.size()), value);
        }
    }
    return values;
}

}

std::vector<Control::BadSetting> Control::checkConfiguration(const io::Properties& opts)
{
    const sys::StackTrack track("checkConfiguration()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const SettingValues values = allValues(opts);
    LogSettings settings;
    std::vector<BadSetting> bad = SettingsTable::read(values, settings);
    SettingsTable::checkPath(values, settings, bad);
    return bad;
}

void Control::reconfigure(const io::Properties& opts)
{
    const sys::StackTrack track("reconfigure()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    auto& logger = dynamic_cast<Write&>(*this);
    const SettingValues values = allValues(opts);
    LogSettings settings;
    std::vector<BadSetting> bad = SettingsTable::read(values, settings);
    if (!logger.isOutputOf(settings)) {
        // Not for a file that is open already: this process may have dropped the privileges to open it again.
        SettingsTable::checkPath(values, settings, bad);
    }
    SettingsTable::requireNone(bad);
    try {
        logger.applySettings(settings);
    } catch (const SettingsTable::OutputFailure& failure) {
        SettingsTable::requireNone({SettingsTable::badOutput(values, failure.what())});
    }
}

bool Control::reopen()
{
    const sys::StackTrack track("reopen()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    return dynamic_cast<Write&>(*this).reopenFile();
}

void Write::setConfiguration(const io::Properties& opts)
{
    const sys::StackTrack track("setConfiguration()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const SettingValues values = knownValues(opts);
    for (const Setting* setting = SettingsTable::begin(); setting != SettingsTable::end(); ++setting) {
        if (std::string_view(setting->tag) == TAG_OUTPUT_STREAM) {
            // Applies even if none of its keys is present.
            configureOutput(values);
        } else if (setting->set != nullptr && SettingsTable::applies(*setting, values)) {
            setting->set(SettingsTable::valueOf(values, setting->tag), *this);
        }
    }
}

void Write::configureOutput(const SettingValues& values)
{
    const String stream = SettingsTable::valueOf(values, TAG_OUTPUT_STREAM);
    const String path = stream.empty() ? SettingsTable::outputPath(values) : String();
    if (!stream.empty()) {
        setStream(stream);
    } else if (!path.empty()) {
        setPath(path);
    } else {
        setStream(static_cast<std::ios&>(*STD_LOG_STREAMS[0].addr));
    }
}

}
