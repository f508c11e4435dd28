#include <dalnim/dalbase.hpp>

#include <dalnim/type/StdVectors.hpp>

template class std::vector<char>;
template class std::vector<signed char>;
template class std::vector<unsigned char>;
template class std::vector<short>;
template class std::vector<unsigned short>;
template class std::vector<int>;
template class std::vector<unsigned int>;
template class std::vector<long>;
template class std::vector<unsigned long>;
template class std::vector<long long>;
template class std::vector<unsigned long long>;
template class std::vector<float>;
template class std::vector<double>;
template class std::vector<bool>;
template class std::vector<com::kor::dal::nim::String>;
template class std::vector<std::wstring>;
template class std::vector<com::kor::dal::nim::type::StringPair>;
template class std::vector<com::kor::dal::nim::type::WideStringPair>;
