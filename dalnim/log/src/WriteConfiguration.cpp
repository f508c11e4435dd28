#include <dalnim/dalbase.hpp>

#include <dalnim/log/Write.hpp>

#include <dalnim/io/Properties.hpp>
#include <dalnim/log/nsdefs.hpp>
#include <dalnim/log/src/SettingsTable.hpp>
#include <dalnim/sys/StackTrack.hpp>

#include <string_view>

namespace com::kor::dal::nim::log {

namespace {

/** The values of the settings that the table of rows has. */
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

}

void Write::setConfiguration(const io::Properties& opts)
{
    const sys::StackTrack track("setConfiguration()", CLASS_NAME, NAMESPACE_NAME, __LINE__);
    const SettingValues values = knownValues(opts);
    for (const Setting* setting = SettingsTable::begin(); setting != SettingsTable::end(); ++setting) {
        if (std::string_view(setting->tag) == TAG_OUTPUT_STREAM) {
            // In effect without any of its keys, too.
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
