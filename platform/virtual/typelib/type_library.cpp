#include "platform/virtual/typelib/type_library.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <stdexcept>

#include "platform/virtual/base/text.h"
#include "platform/virtual/core/machine.h"

namespace virtual_pc {
namespace {

constexpr int kDispatchSlots = 7;

// The built-in types. Names of several words have single blanks here.
constexpr struct
{
    std::string_view name;
    VARTYPE type;
} kTypes[] = {
    {"void", VT_VOID},         {"HRESULT", VT_HRESULT},   {"short", VT_I2},
    {"long", VT_I4},           {"int", VT_INT},           {"unsigned short", VT_UI2},
    {"unsigned long", VT_UI4}, {"unsigned int", VT_UINT}, {"float", VT_R4},
    {"double", VT_R8},         {"BSTR", VT_BSTR},         {"VARIANT_BOOL", VT_BOOL},
    {"VARIANT", VT_VARIANT},
};

// The [attributes] before a declaration: their names, and their arguments as written.
using Attributes = std::map<std::string, std::string>;

class TypeLibraryReader
{
public:
    explicit TypeLibraryReader(std::string_view text) : m_text(text) {}

    TypeLibrary Read()
    {
        for (;;) {
            const Attributes attributes = ReadAttributes();
            const std::string word = Word();
            if (word == "library") {
                ReadLibrary(attributes);
                return std::move(m_library);
            }
            if (word != "import" && word != "interface") Fail("\"" + word + "\" is not understood");
            SkipTo(';');
        }
    }

private:
    [[noreturn]] void Fail(const std::string& what) const
    {
        const auto line = 1 + std::count(m_text.begin(), m_text.begin() + Place(m_at), '\n');
        throw std::runtime_error("line " + std::to_string(line) + ": " + what);
    }

    static std::ptrdiff_t Place(std::size_t at) { return static_cast<std::ptrdiff_t>(at); }

    // --- Characters and words ---

    void SkipBlanks()
    {
        for (;;) {
            while (m_at < m_text.size() && std::isspace(Char(m_at))) ++m_at;
            if (m_text.substr(m_at, 2) == "//") {
                m_at = std::min(m_text.find('\n', m_at), m_text.size());
            } else if (m_text.substr(m_at, 2) == "/*") {
                m_at = std::min(m_text.find("*/", m_at), m_text.size() - 2) + 2;
            } else {
                return;
            }
        }
    }

    int Char(std::size_t at) const { return static_cast<unsigned char>(m_text[at]); }

    // The next character that is no blank; 0 at the end.
    char Peek()
    {
        SkipBlanks();
        return m_at < m_text.size() ? m_text[m_at] : '\0';
    }

    bool Take(char c)
    {
        if (Peek() != c) return false;
        ++m_at;
        return true;
    }

    void Expect(char c)
    {
        if (!Take(c)) Fail(std::string("'") + c + "' is missing");
    }

    std::string Word()
    {
        SkipBlanks();
        const std::size_t from = m_at;
        while (m_at < m_text.size() && (std::isalnum(Char(m_at)) || m_text[m_at] == '_')) ++m_at;
        if (m_at == from) Fail("a word is missing");
        return std::string(m_text.substr(from, m_at - from));
    }

    void SkipTo(char c)
    {
        const std::size_t found = m_text.find(c, m_at);
        if (found == m_text.npos) Fail(std::string("'") + c + "' is missing");
        m_at = found + 1;
    }

    // The text between parentheses, including quotes.
    std::string Argument()
    {
        Expect('(');
        const std::size_t from = m_at;
        bool quoted = false;
        for (int depth = 1; depth > 0; ++m_at) {
            if (m_at >= m_text.size()) Fail("')' is missing");
            const char c = m_text[m_at];
            if (c == '"') quoted = !quoted;
            if (!quoted && c == '(') ++depth;
            if (!quoted && c == ')') --depth;
        }
        return std::string(m_text.substr(from, m_at - 1 - from));
    }

    static std::wstring Unquoted(const std::string& text)
    {
        const std::size_t from = text.find('"');
        const std::size_t to = text.rfind('"');
        return from < to ? FromUtf8(text.substr(from + 1, to - from - 1)) : std::wstring();
    }

    LONG NumberOf(std::string_view text) const
    {
        while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
        const bool hex = text.starts_with("0x") || text.starts_with("0X");
        if (hex) text.remove_prefix(2);
        long long number = 0;
        const char* end = text.data() + text.size();
        const auto parsed = std::from_chars(text.data(), end, number, hex ? 16 : 10);
        if (parsed.ec != std::errc{}) Fail("\"" + std::string(text) + "\" is no number");
        return static_cast<LONG>(number);
    }

    GUID GuidOf(const std::string& text) const
    {
        const std::optional<GUID> guid = ParseGuid(FromUtf8(text));
        if (!guid) Fail("\"" + text + "\" is no identifier");
        return *guid;
    }

    // --- Attributes ---

    Attributes ReadAttributes()
    {
        Attributes attributes;
        while (Take('[')) {
            do {
                const std::string name = Word();
                attributes[name] = Peek() == '(' ? Argument() : "";
            } while (Take(','));
            Expect(']');
        }
        return attributes;
    }

    GUID Identifier(const Attributes& attributes) const
    {
        const auto found = attributes.find("uuid");
        if (found == attributes.end()) Fail("uuid is missing");
        return GuidOf(found->second);
    }

    static std::wstring Help(const Attributes& attributes)
    {
        const auto found = attributes.find("helpstring");
        return found != attributes.end() ? Unquoted(found->second) : std::wstring();
    }

    // --- The library ---

    void ReadLibrary(const Attributes& attributes)
    {
        m_library.guid = Identifier(attributes);
        m_library.help = Help(attributes);
        if (const auto version = attributes.find("version"); version != attributes.end()) {
            const std::string& text = version->second;
            const std::size_t dot = std::min(text.find('.'), text.size());
            m_library.major = static_cast<WORD>(NumberOf(text.substr(0, dot)));
            if (dot < text.size()) {
                m_library.minor = static_cast<WORD>(NumberOf(text.substr(dot + 1)));
            }
        }
        if (const auto locale = attributes.find("lcid"); locale != attributes.end()) {
            m_library.locale = static_cast<LCID>(NumberOf(locale->second));
        }
        if (const auto custom = attributes.find("custom"); custom != attributes.end()) {
            const std::size_t comma = custom->second.find(',');
            m_library.custom[GuidOf(custom->second.substr(0, comma))] = Unquoted(custom->second);
        }
        m_library.name = FromUtf8(Word());
        Expect('{');
        while (!Take('}')) ReadType();
        Take(';');
    }

    void ReadType()
    {
        Attributes attributes = ReadAttributes();
        std::string word = Word();
        if (word == "importlib") {
            m_library.imports.push_back(Unquoted(Argument()));
            return Expect(';');
        }
        using Kind = TypeDescription::Kind;
        TypeDescription type{};
        if (word == "typedef") {
            for (auto& more : ReadAttributes()) attributes.insert(std::move(more));
            word = Word();
        }
        if (word == "enum") {
            type.kind = Kind::enumeration;
        } else if (word == "dispinterface") {
            type.kind = Kind::dispatch;
        } else if (word == "coclass") {
            type.kind = Kind::coclass;
        } else if (word == "interface") {
            type.kind = Kind::interface;
        } else {
            Fail("\"" + word + "\" is not understood");
        }
        type.name = FromUtf8(Word());
        if (Take(';')) return;  // a forward declaration
        type.guid = Identifier(attributes);
        type.help = Help(attributes);
        for (const auto& [name, argument] : attributes) {
            if (argument.empty()) type.flags.push_back(FromUtf8(name));
        }
        if (Take(':')) type.base = FromUtf8(Word());
        Expect('{');
        if (type.kind == Kind::enumeration) {
            ReadNumbers(type);
        } else if (type.kind == Kind::coclass) {
            ReadInterfaces(type);
        } else {
            ReadMembers(type);
        }
        if (type.kind == Kind::enumeration) Word();
        Take(';');
        m_library.types.push_back(std::move(type));
    }

    void ReadNumbers(TypeDescription& type)
    {
        LONG next = 0;
        while (!Take('}')) {
            NamedNumber number{FromUtf8(Word()), next};
            if (Take('=')) {
                const bool negative = Take('-');
                number.value = NumberOf(Word());
                if (negative) number.value = -number.value;
            }
            next = number.value + 1;
            type.numbers.push_back(std::move(number));
            Take(',');
        }
    }

    void ReadInterfaces(TypeDescription& type)
    {
        while (!Take('}')) {
            const Attributes attributes = ReadAttributes();
            Word();  // interface or dispinterface
            type.interfaces.push_back(
                {FromUtf8(Word()), attributes.contains("default"), attributes.contains("source")});
            Expect(';');
        }
    }

    // --- Members ---

    void ReadMembers(TypeDescription& type)
    {
        int slot = type.kind == TypeDescription::Kind::interface ? kDispatchSlots : -1;
        while (!Take('}')) {
            const Attributes attributes = ReadAttributes();
            const std::size_t before = m_at;
            if (attributes.empty() && SkipHeading()) continue;
            m_at = before;
            Member member;
            const auto id = attributes.find("id");
            if (id == attributes.end()) Fail("id is missing");
            member.id = NumberOf(id->second);
            if (attributes.contains("propget")) member.kind = DISPATCH_PROPERTYGET;
            if (attributes.contains("propput")) member.kind = DISPATCH_PROPERTYPUT;
            member.help = Help(attributes);
            member.result = ReadParameterType();
            member.name = FromUtf8(Word());
            if (slot >= 0) member.slot = slot++;
            Expect('(');
            while (!Take(')')) {
                member.parameters.push_back(ReadParameter());
                Take(',');
            }
            Expect(';');
            type.members.push_back(std::move(member));
        }
    }

    // "properties:" and "methods:".
    bool SkipHeading()
    {
        Word();
        return Take(':');
    }

    Parameter ReadParameter()
    {
        Parameter parameter;
        const Attributes attributes = ReadAttributes();
        parameter.in = attributes.contains("in");
        parameter.out = attributes.contains("out");
        parameter.retval = attributes.contains("retval");
        parameter.type = ReadParameterType();
        if (std::isalpha(static_cast<unsigned char>(Peek()))) parameter.name = FromUtf8(Word());
        return parameter;
    }

    ParameterType ReadParameterType()
    {
        std::string name = Word();
        if (name == "unsigned") name += " " + Word();
        ParameterType type;
        const auto known =
            std::ranges::find(kTypes, name, [](const auto& row) { return row.name; });
        if (known != std::end(kTypes)) {
            type.type = known->type;
        } else if (const TypeDescription* described = m_library.Find(FromUtf8(name));
                   described && described->kind == TypeDescription::Kind::enumeration) {
            type.type = VT_I4;
            type.name = described->name;
        } else {
            Fail("\"" + name + "\" is no known type");
        }
        type.pointer = Take('*');
        return type;
    }

    std::string_view m_text;
    std::size_t m_at = 0;
    TypeLibrary m_library;
};

}  // namespace

bool TypeDescription::Has(std::wstring_view flag) const
{
    return std::ranges::find(flags, flag) != flags.end();
}

const TypeDescription* TypeLibrary::Find(const GUID& type) const
{
    const auto found = std::ranges::find_if(types, [&](const auto& t) { return t.guid == type; });
    return found != types.end() ? &*found : nullptr;
}

const TypeDescription* TypeLibrary::Find(std::wstring_view type) const
{
    const auto found = std::ranges::find(types, type, &TypeDescription::name);
    return found != types.end() ? &*found : nullptr;
}

TypeLibrary ReadTypeLibrary(std::string_view text) { return TypeLibraryReader(text).Read(); }

void TypeLibraries::Add(std::wstring_view path, const std::string& description)
{
    std::ifstream file(description, std::ios::binary);
    if (!file) throw std::runtime_error(description + ": cannot be read");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    try {
        m_libraries[std::wstring(path)] =
            std::make_shared<const TypeLibrary>(ReadTypeLibrary(text));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(description + ": " + error.what());
    }
}

std::shared_ptr<const TypeLibrary> TypeLibraries::Find(const std::wstring& path) const
{
    Hold::Require();
    const auto found = m_libraries.find(path);
    return found != m_libraries.end() ? found->second : nullptr;
}

}  // namespace virtual_pc
