s|static constexpr const char CLASS_NAME|/** The name of the class, as stack traces and configuration keys show it. */ &|
