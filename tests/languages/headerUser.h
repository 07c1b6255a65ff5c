// A part of the test that is compiled as C++17.
#pragma once

#include <string>

std::wstring encodedByCxx17(const std::wstring& text);
