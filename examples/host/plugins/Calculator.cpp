// Computes with two or more numbers of the type that the request names. The operations "add", "subtract",
// "multiply" and "divide" are applied from left to right. Numbers and results that are out of the range of
// the type are errors. The setting "types" is a comma-separated list of the types that are available, by
// default all.

#include "PluginModule.hpp"
#include "Service.hpp"

#include <dalnim/nim.hpp>

#include <cerrno>
#include <limits>
#include <map>
#include <sstream>
#include <type_traits>

namespace nimhost::calculator {

namespace nim = com::kor::dal::nim;
using nim::String;

namespace {

PluginModule pluginModule("nimhost.plugin.calculator");
nim::log::Module& com_kor_dal_nim_log_module = pluginModule;

[[noreturn]] void throwOutOfRange()
{
    throw std::out_of_range("the result is out of the range of the type");
}

template <class Number>
Number parse(const String& text)
{
    Number number = 0;
    // An `errno` left over from an earlier failure would turn the highest values into errors.
    errno = 0;
    nim::type::NumberOps::parse(number, text);
    return number;
}

template <class Number>
Number divide(Number left, Number right)
{
    if constexpr (std::is_integral_v<Number>) {
        if (right == 0) {
            throw std::domain_error("division by zero");
        }
        if constexpr (std::is_signed_v<Number>) {
            if (left == std::numeric_limits<Number>::min() && right == -1) {
                throwOutOfRange();
            }
        }
    }
    return static_cast<Number>(left / right);
}

template <class Number>
Number compute(const String& operation, Number left, Number right)
{
    Number result = 0;
    if (operation == "divide") {
        return divide(left, right);
    }
    if constexpr (std::is_floating_point_v<Number>) {
        result = operation == "add" ? left + right : operation == "subtract" ? left - right : left * right;
    } else {
        const bool exceeds = operation == "add"        ? __builtin_add_overflow(left, right, &result)
                             : operation == "subtract" ? __builtin_sub_overflow(left, right, &result)
                                                       : __builtin_mul_overflow(left, right, &result);
        if (exceeds) {
            throwOutOfRange();
        }
    }
    return result;
}

template <class Number>
String computeAll(const ServiceCall& call)
{
    std::vector<Number> numbers;
    for (const ServiceCall::NamedText& argument : call.arguments) {
        if (argument.first == "number") {
            numbers.push_back(parse<Number>(argument.second));
        }
    }
    if (numbers.size() < 2) {
        throw std::invalid_argument("the calculator requires at least two numbers");
    }
    Number result = numbers[0];
    for (std::size_t i = 1; i < numbers.size(); ++i) {
        result = compute(call.operation, result, numbers[i]);
    }
    std::ostringstream text;
    text.precision(std::numeric_limits<Number>::max_digits10);
    // "+" promotes the character types, which would be printed as characters.
    text << +result;
    return text.str();
}

typedef String (*Computation)(const ServiceCall& call);

const std::map<String, Computation> COMPUTATIONS = {
    {"signed char", computeAll<signed char>},
    {"unsigned char", computeAll<unsigned char>},
    {"short", computeAll<short>},
    {"unsigned short", computeAll<unsigned short>},
    {"int", computeAll<int>},
    {"unsigned int", computeAll<unsigned int>},
    {"long", computeAll<long>},
    {"unsigned long", computeAll<unsigned long>},
    {"long long", computeAll<long long>},
    {"unsigned long long", computeAll<unsigned long long>},
    {"float", computeAll<float>},
    {"double", computeAll<double>},
};

class CalculatorService : public Service
{
public:
    explicit CalculatorService(const nim::io::Properties& settings)
    {
        nim::type::CompositeString types(settings.getProperty("types"), ",", true);
        for (String type = types.next(); !type.empty(); type = types.next()) {
            offered.emplace(type, computation(type));
        }
        if (offered.empty()) {
            offered = COMPUTATIONS;
        }
        NIM_LOG(Severity_INFO) << "calculator of " << offered.size() << " types";
    }

    String perform(const ServiceCall& call) const override
    {
        const nim::sys::StackTrack track("perform()", "CalculatorService", "nimhost.calculator", __LINE__);
        if (call.operation != "add" && call.operation != "subtract" && call.operation != "multiply"
            && call.operation != "divide") {
            throw std::invalid_argument("unknown operation \"" + call.operation + "\" of the calculator");
        }
        const String* const named = ServiceCall::find(call.options, "type");
        const String type = named == nullptr ? "double" : *named;
        const auto found = offered.find(type);
        if (found == offered.end()) {
            throw std::invalid_argument("type \"" + type + "\" is not available in the calculator");
        }
        const String result = found->second(call);
        NIM_LOG(Severity_DEBUG) << call.operation << " in " << type << " gave " << result;
        return result;
    }

private:
    static Computation computation(const String& type)
    {
        const auto found = COMPUTATIONS.find(type);
        if (found == COMPUTATIONS.end()) {
            throw std::invalid_argument("unknown type \"" + type + "\" of the calculator");
        }
        return found->second;
    }

    std::map<String, Computation> offered;
};

}

NIMHOST_PLUGIN(settings)
{
    return new CalculatorService(settings);
}

}
