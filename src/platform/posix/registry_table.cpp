#include <algorithm>

#include "platform/posix/registry_file.h"
#include "platform/text.h"

namespace vex {
namespace {

WCHAR Folded(WCHAR character)
{
    return character >= u'A' && character <= u'Z' ? static_cast<WCHAR>(character - u'A' + u'a') : character;
}

bool SameText(WStringView a, WStringView b)
{
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](WCHAR left, WCHAR right) { return Folded(left) == Folded(right); });
}

bool IsBelow(WStringView path, WStringView parent)
{
    return path.size() > parent.size() && path[parent.size()] == u'\\' &&
           SameText(path.substr(0, parent.size()), parent);
}

bool IsSurrogate(WCHAR character) { return character >= 0xD800 && character <= 0xDFFF; }

// In quotes; line ends and lone surrogates as \xHHHH.
std::string Quoted(WStringView text)
{
    constexpr const char* kDigits = "0123456789ABCDEF";
    std::string result = "\"";
    std::size_t plain = 0;
    const auto flush = [&](std::size_t end) { result += Utf8FromWide(text.substr(plain, end - plain)); };
    for (std::size_t i = 0; i < text.size(); ++i) {
        const WCHAR character = text[i];
        if (character >= 0xD800 && character <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] <= 0xDFFF) {
            ++i;
            continue;
        }
        if (character >= 0x20 && character != u'"' && character != u'\\' && !IsSurrogate(character))
            continue;
        flush(i);
        plain = i + 1;
        if (character == u'"' || character == u'\\') {
            result += {'\\', static_cast<char>(character)};
        } else {
            result += "\\x";
            for (int shift = 12; shift >= 0; shift -= 4)
                result += kDigits[character >> shift & 0xF];
        }
    }
    flush(text.size());
    return result += '"';
}

int HexDigit(char character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    return -1;
}

// Takes the four digits after "\x" from the front of `text`.
bool TakeUnit(std::string_view& text, WString& out)
{
    if (text.size() < 4)
        return false;
    unsigned unit = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = HexDigit(text[static_cast<std::size_t>(i)]);
        if (digit < 0)
            return false;
        unit = unit << 4 | static_cast<unsigned>(digit);
    }
    out.push_back(static_cast<WCHAR>(unit));
    text.remove_prefix(4);
    return true;
}

// Takes a quoted text from the front of `line`.
bool TakeQuoted(std::string_view& line, WString& out)
{
    if (!line.starts_with('"'))
        return false;
    line.remove_prefix(1);
    while (!line.empty()) {
        const std::size_t plain = std::min(line.find_first_of("\"\\"), line.size());
        out += WideFromUtf8(line.substr(0, plain));
        line.remove_prefix(plain);
        if (line.starts_with('"')) {
            line.remove_prefix(1);
            return true;
        }
        if (line.size() < 2)
            return false;
        const char escaped = line[1];
        line.remove_prefix(2);
        if (escaped == 'x') {
            if (!TakeUnit(line, out))
                return false;
        } else {
            out.push_back(static_cast<WCHAR>(static_cast<unsigned char>(escaped)));
        }
    }
    return false;
}

}  // namespace

bool GRegistryTable::ParseLine(std::string_view line)
{
    if (line.empty())
        return true;
    if (line.starts_with('[')) {
        line.remove_prefix(1);
        WString path;
        if (!TakeQuoted(line, path) || line != "]")
            return false;
        keys.push_back({std::move(path), {}});
        return true;
    }
    if (keys.empty())
        return false;
    GRegistryValue value;
    if (line.starts_with('@'))
        line.remove_prefix(1);
    else if (!TakeQuoted(line, value.name))
        return false;
    if (!line.starts_with('='))
        return false;
    line.remove_prefix(1);
    if (!TakeQuoted(line, value.value) || !line.empty())
        return false;
    keys.back().values.push_back(std::move(value));
    return true;
}

bool GRegistryTable::Parse(std::string_view text)
{
    keys.clear();
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        if (!ParseLine(text.substr(0, end))) {
            keys.clear();
            return false;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return true;
}

std::string GRegistryTable::Format() const
{
    std::string text;
    for (const GRegistryKey& key : keys) {
        text += "[" + Quoted(key.path) + "]\n";
        for (const GRegistryValue& value : key.values)
            text += (value.name.empty() ? "@" : Quoted(value.name)) + "=" + Quoted(value.value) + "\n";
        text += "\n";
    }
    return text;
}

GRegistryKey& GRegistryTable::KeyAt(WStringView path)
{
    const auto found = std::ranges::find_if(keys, [&](const GRegistryKey& key) { return SameText(key.path, path); });
    if (found != keys.end())
        return *found;
    if (const std::size_t parent = path.rfind(u'\\'); parent != WStringView::npos)
        KeyAt(path.substr(0, parent));
    return keys.emplace_back(GRegistryKey{WString(path), {}});
}

void GRegistryTable::Set(WStringView key, WStringView name, WStringView value)
{
    std::vector<GRegistryValue>& values = KeyAt(key).values;
    const auto found =
        std::ranges::find_if(values, [&](const GRegistryValue& old) { return SameText(old.name, name); });
    if (found != values.end())
        found->value = value;
    else
        values.push_back({WString(name), WString(value)});
}

const WString* GRegistryTable::Find(WStringView key, WStringView name) const
{
    for (const GRegistryKey& candidate : keys) {
        if (!SameText(candidate.path, key))
            continue;
        for (const GRegistryValue& value : candidate.values)
            if (SameText(value.name, name))
                return &value.value;
    }
    return nullptr;
}

bool GRegistryTable::DeleteTree(WStringView key)
{
    return std::erase_if(keys, [&](const GRegistryKey& candidate) {
               return SameText(candidate.path, key) || IsBelow(candidate.path, key);
           }) != 0;
}

std::vector<WString> GRegistryTable::SubKeys(WStringView key) const
{
    std::vector<WString> names;
    for (const GRegistryKey& candidate : keys) {
        const WStringView path = candidate.path;
        if (!key.empty() && !IsBelow(path, key))
            continue;
        const WStringView name = path.substr(key.empty() ? 0 : key.size() + 1);
        if (name.find(u'\\') == WStringView::npos)
            names.emplace_back(name);
    }
    return names;
}

}  // namespace vex
