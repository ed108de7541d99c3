#include "formats/mp4/mp4_box.h"

#include <charconv>

namespace vex {
namespace {

Mp4Box* Child(Mp4Box& father, bool anyType, std::uint32_t type, std::uint32_t index)
{
    for (Mp4Box* child = father.firstChild; child; child = child->nextSibling) {
        if (!anyType && child->type != type)
            continue;
        if (index-- == 0)
            return child;
    }
    return nullptr;
}

Mp4Box* Follow(Mp4Box& from, std::string_view token)
{
    if (token == ".")
        return &from;
    if (token == "..")
        return from.father;
    std::uint32_t index = 0;
    const std::size_t bracket = token.find('[');
    if (bracket != std::string_view::npos) {
        const char* const end = token.data() + token.size();
        const auto parsed = std::from_chars(token.data() + bracket + 1, end, index);
        if (parsed.ec != std::errc{} || parsed.ptr + 1 != end || *parsed.ptr != ']')
            return nullptr;
        token = token.substr(0, bracket);
    }
    if (token.empty() && bracket == 0)
        return Child(from, true, 0, index);
    if (token.size() != 4)
        return nullptr;
    const char name[5] = {token[0], token[1], token[2], token[3], 0};
    return Child(from, false, FourCC(name), index);
}

}  // namespace

Mp4Box* GMp4BoxTree::NewBox() { return boxes.size() < kMaxBoxes ? &boxes.emplace_back() : nullptr; }

void GMp4BoxTree::Append(Mp4Box& father, Mp4Box& child)
{
    child.father = &father;
    if (father.lastChild)
        father.lastChild->nextSibling = &child;
    else
        father.firstChild = &child;
    father.lastChild = &child;
}

Mp4Box* GMp4BoxTree::GetBox(Mp4Box& from, std::string_view path)
{
    Mp4Box* box = &from;
    if (path.starts_with('/')) {
        while (box->father)
            box = box->father;
    }
    while (box) {
        const std::size_t start = path.find_first_not_of('/');
        if (start == std::string_view::npos)
            break;
        path.remove_prefix(start);
        const std::string_view token = path.substr(0, path.find('/'));
        path.remove_prefix(token.size());
        box = Follow(*box, token);
    }
    return box;
}

std::size_t GMp4BoxTree::CountBox(std::string_view path)
{
    const Mp4Box* const first = GetBox(path);
    std::size_t count = 0;
    for (const Mp4Box* box = first; box; box = box->nextSibling)
        count += box->type == first->type ? 1 : 0;
    return count;
}

}  // namespace vex
