// Benchmark helper.
//   pellomar-benchgen generate DIR N   writes a store of N messages into DIR,
//                                      the same bytes on every run; of the
//                                      partial messages, three in four keep
//                                      the attachment in an .emlxpart file
//                                      and one in four as a decoded file
//                                      under Attachments/<N>/2/
//   pellomar-benchgen generate-modern DIR N
//                                      the same in today's layout (see
//                                      GenerateModern)
//   pellomar-benchgen copy DIR [OUT]   reads every file below DIR (but ".done")
//                                      through a 128 KiB buffer, and writes it
//                                      to OUT when given: the plain read and
//                                      the plain copy the program is compared
//                                      with (cat would copy between two files
//                                      inside the kernel, which no program
//                                      that looks at the bytes can do)
//   pellomar-benchgen measure OUT CMD [ARGS...]
//                                      runs CMD with stdout sent to OUT and
//                                      prints "seconds maxrss_kb exit_code"
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// splitmix64: small, fast and the same everywhere.
struct Random {
    uint64_t state;
    uint64_t next() {
        uint64_t z = (state += 0x9e3779b97f4a7c15ULL);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
        return z ^ (z >> 31);
    }
    uint64_t below(uint64_t n) { return n ? next() % n : 0; }
    uint64_t between(uint64_t lo, uint64_t hi) { return lo + below(hi - lo + 1); }
};

const char* const kWords[] = {
    "project", "meeting", "report", "budget",  "review", "draft",  "release", "schedule",
    "team",    "update",  "client", "invoice", "design", "server", "backup",  "holiday",
    "the",     "and",     "for",    "with",    "about",  "next",   "week",    "please",
    "thanks",  "regards", "über",   "café",    "naïve",  "déjà",   "señor",   "smörgåsbord"};
const char* const kPeople[] = {"Anna Lindqvist", "Tom Okafor", "Priya Raman", "Lea Moreau",
                               "Marek Novak",    "Sato Yui",   "Kim Minjun",  "Bob Hartmann"};
const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Words(Random& r, size_t bytes, bool html) {
    std::string out;
    out.reserve(bytes + 100);
    size_t line = 0;
    while (out.size() < bytes) {
        const char* w = kWords[r.below(sizeof kWords / sizeof *kWords)];
        out += w;
        line += strlen(w) + 1;
        if (line > 68) {
            out += html ? "<br>\n" : "\n";
            line = 0;
        } else {
            out += ' ';
        }
    }
    out += "\n";
    return out;
}

void Base64Lines(Random& r, size_t bytes, std::string& out) {
    const size_t chars = (bytes + 2) / 3 * 4;
    out.reserve(out.size() + chars + chars / 76 + 2);
    uint64_t bits = 0;
    int left = 0;
    size_t column = 0;
    for (size_t i = 0; i < chars; ++i) {
        if (left == 0) {
            bits = r.next();
            left = 8;
        }
        out += kBase64[bits & 63];
        bits >>= 8;
        --left;
        if (++column == 76) {
            out += '\n';
            column = 0;
        }
    }
    if (column)
        out += '\n';
}

// Decodes base64 text without padding; line breaks are skipped.
std::string Base64Decode(const std::string& text) {
    signed char value[256];
    std::fill(std::begin(value), std::end(value), static_cast<signed char>(-1));
    for (int i = 0; i < 64; ++i)
        value[static_cast<unsigned char>(kBase64[i])] = static_cast<signed char>(i);
    std::string out;
    out.reserve(text.size() / 4 * 3);
    uint32_t bits = 0;
    int count = 0;
    for (char c : text) {
        const int v = value[static_cast<unsigned char>(c)];
        if (v < 0)
            continue;
        bits = (bits << 6) | static_cast<uint32_t>(v);
        count += 6;
        if (count >= 8) {
            count -= 8;
            out += static_cast<char>((bits >> count) & 0xff);
        }
    }
    return out;
}

const char kTrailer[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n<dict>\n\t<key>flags</key>\n\t<integer>8590195713</integer>\n"
    "</dict>\n</plist>\n";

bool WriteAll(const fs::path& path, const std::string& a, const std::string& b = {},
              const std::string& c = {}) {
    FILE* f = fopen(path.c_str(), "wb");
    if (!f)
        return false;
    bool ok = fwrite(a.data(), 1, a.size(), f) == a.size() &&
              fwrite(b.data(), 1, b.size(), f) == b.size() &&
              fwrite(c.data(), 1, c.size(), f) == c.size();
    return fclose(f) == 0 && ok;
}

std::vector<std::string> Folders() {
    std::vector<std::string> f;
    for (const char* name : {"Inbox", "Archive", "Work", "Family", "Receipts", "Travel"}) {
        f.push_back(std::string("V2/Mailboxes/") + name + ".mbox/Messages");
        f.push_back(std::string("V2/Mailboxes/") + name + ".mbox/2013.mbox/Messages");
    }
    int data = 0;
    for (const char* name :
         {"INBOX", "Sent Messages", "Drafts", "Projects.mbox/Alpha", "Projects.mbox/Beta"})
        f.push_back(std::string("V2/IMAP-anna@mail.example.org/") + name +
                    ".mbox/8A1C0F52-33D4-4B7E-9E61-0C2B7D5A9F13/Data/" + std::to_string(data++) +
                    "/Messages");
    f.push_back("V2/EWS-bob@exchange.example.com/Inbox.ewsmbox/Messages");
    f.push_back("V2/EWS-bob@exchange.example.com/Deleted Items.ewsmbox/Messages");
    return f;
}

int Generate(const fs::path& dir, uint64_t count) {
    const std::vector<std::string> folders = Folders();
    Random r{20260301};
    uint64_t bytes = 0;
    uint64_t partials = 0;
    uint64_t decodedFiles = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const std::string& folder = folders[i * folders.size() / count];
        const fs::path messages = dir / folder;
        std::error_code ec;
        fs::create_directories(messages, ec);
        if (ec) {
            fprintf(stderr, "cannot create %s: %s\n", messages.c_str(), ec.message().c_str());
            return 1;
        }
        const uint64_t number = 1000 + i;
        const uint64_t kind = r.below(1000);
        // 93 % text only, 6.9 % with a 100 KB - 1 MB attachment, 0.1 % with 2 - 6 MB;
        // one in five messages with an attachment keeps it in an .emlxpart file.
        const size_t attachment = kind < 930   ? 0
                                  : kind < 999 ? r.between(100 << 10, 1 << 20)
                                               : r.between(2 << 20, 6 << 20);
        const bool partial = attachment && r.below(5) == 0;
        // Every fourth partial message is in today's layout: the part's body
        // is left out of the message and its decoded bytes are under
        // Attachments beside the Messages folder. No random draw decides
        // this, so the other messages stay as they were.
        const bool decodedFile = partial && partials++ % 4 == 3;
        const bool html = r.below(2) == 0;
        const char* from = kPeople[r.below(8)];
        const char* to = kPeople[r.below(8)];

        std::string m;
        m += "From: ";
        m += from;
        m += " <sender" + std::to_string(r.below(50)) + "@example.org>\n";
        m += "To: ";
        m += to;
        m += " <anna@mail.example.org>\n";
        if (r.below(10) == 0)
            m += "Subject: =?utf-8?Q?R=C3=A9sum=C3=A9_" + std::to_string(number) + "?=\n";
        else
            m += "Subject: " + Words(r, 30, false); // one short line, ends in "\n"
        m += "Date: Tue, " + std::to_string(1 + r.below(28)) + " Mar 2013 " +
             std::to_string(10 + r.below(12)) + ":0" + std::to_string(r.below(10)) + ":1" +
             std::to_string(r.below(10)) + " +0100\n";
        m += "Message-Id: <" + std::to_string(number) + "@example.org>\n";
        m += "Mime-Version: 1.0 (Apple Message framework v1283)\n";
        m += "Content-Type: multipart/mixed; boundary=\"Apple-Mail=_M" + std::to_string(number) +
             "\"\n\n\n";
        const std::string mixed = "--Apple-Mail=_M" + std::to_string(number);
        const std::string alt = "--Apple-Mail=_A" + std::to_string(number);
        const size_t textSize = r.between(2 << 10, 20 << 10);
        m += mixed + "\nContent-Type: multipart/alternative;\n\tboundary=\"Apple-Mail=_A" +
             std::to_string(number) + "\"\n\n\n";
        m += alt +
             "\nContent-Transfer-Encoding: 8bit\nContent-Type: text/plain;\n\tcharset=utf-8\n\n";
        m += Words(r, html ? textSize / 2 : textSize, false);
        if (html) {
            m += "\n" + alt +
                 "\nContent-Transfer-Encoding: 8bit\nContent-Type: text/html;\n\tcharset=utf-8\n\n"
                 "<html><body>\n";
            m += Words(r, textSize / 2, true);
            m += "</body></html>\n";
        }
        m += "\n" + alt + "--\n";
        std::string part;
        if (attachment) {
            const std::string name = "file" + std::to_string(number) + ".pdf";
            m += "\n" + mixed + "\nContent-Disposition: attachment;\n\tfilename=" + name +
                 "\nContent-Type: application/pdf;\n\tname=\"" + name +
                 "\"\nContent-Transfer-Encoding: base64\n";
            Base64Lines(r, attachment, part);
            if (decodedFile) {
                // The size the server reports: CRLF line ends. The blank line
                // after it ends the headers; the delimiter follows at once.
                const size_t wire = part.size() + std::count(part.begin(), part.end(), '\n');
                m += "X-Apple-Content-Length: " + std::to_string(wire) + "\n";
                const fs::path dir =
                    messages.parent_path() / "Attachments" / std::to_string(number) / "2";
                fs::create_directories(dir, ec);
                const std::string decoded = Base64Decode(part);
                if (ec || !WriteAll(dir / name, decoded)) {
                    fprintf(stderr, "cannot write %s\n", (dir / name).c_str());
                    return 1;
                }
                bytes += decoded.size();
                ++decodedFiles;
                part.clear();
            } else if (partial) {
                m += "X-Apple-Content-Length: " + std::to_string(part.size()) + "\n\n\n";
            } else {
                m += "\n";
                m += part;
                part.clear();
            }
        }
        m += "\n" + mixed + "--\n";
        const std::string name = std::to_string(number) + (partial ? ".partial.emlx" : ".emlx");
        if (!WriteAll(messages / name, std::to_string(m.size()) + "\n", m, kTrailer))
            return 1;
        bytes += m.size() + sizeof kTrailer;
        if (partial && !decodedFile) {
            if (!WriteAll(messages / (std::to_string(number) + ".2.emlxpart"), part))
                return 1;
            bytes += part.size();
        }
    }
    printf("%llu messages, %llu partial (%llu with Attachments files), %.1f MB\n",
           static_cast<unsigned long long>(count), static_cast<unsigned long long>(partials),
           static_cast<unsigned long long>(decodedFiles), bytes / 1e6);
    return 0;
}

// A store in today's layout (V10): account folders named by UUID, each
// mailbox with a folder of its own named by UUID holding
// Data/<digits of number/1000, last first>/Messages, and most large parts
// kept decoded under Attachments/<number>/<section>/ beside Messages.
int GenerateModern(const fs::path& dir, uint64_t count) {
    const char* const accounts[] = {"4F1C2A9E-0B7D-4E35-9A61-2C8D5E7F1A03",
                                    "9B3E6D21-5C4A-47F8-8E12-6A0F3D9C2B54",
                                    "D2A7C5E8-1F96-4B03-B7D4-83E5A1C6F920", "Mailboxes"};
    const char* const mailboxes[] = {"INBOX",    "Sent Messages",       "Archive",
                                     "Drafts",   "Projects.mbox/Alpha", "Projects.mbox/Beta",
                                     "Receipts", "Travel.mbox/2023"};
    struct Box {
        fs::path root; // .../<mailbox>.mbox/<UUID>/Data
        uint64_t first;
    };
    std::vector<Box> boxes;
    Random names{77};
    for (const char* account : accounts)
        for (const char* mailbox : mailboxes) {
            char uuid[40];
            snprintf(uuid, sizeof uuid, "%08llX-%04llX-4%03llX-8%03llX-%012llX",
                     static_cast<unsigned long long>(names.below(1ull << 32)),
                     static_cast<unsigned long long>(names.below(1 << 16)),
                     static_cast<unsigned long long>(names.below(1 << 12)),
                     static_cast<unsigned long long>(names.below(1 << 12)),
                     static_cast<unsigned long long>(names.below(1ull << 48)));
            boxes.push_back(
                {dir / "V10" / account / (std::string(mailbox) + ".mbox") / uuid / "Data",
                 100000 + names.below(800000)});
        }
    Random r{20261125};
    uint64_t bytes = 0, decodedParts = 0, emlxparts = 0, folders = 0;
    for (uint64_t i = 0; i < count; ++i) {
        const Box& box = boxes[i * boxes.size() / count];
        const uint64_t number = box.first + i;
        fs::path data = box.root;
        for (uint64_t k = number / 1000; k; k /= 10)
            data /= std::to_string(k % 10);
        const fs::path messages = data / "Messages";
        std::error_code ec;
        if (fs::create_directories(messages, ec))
            ++folders;
        if (ec) {
            fprintf(stderr, "cannot create %s: %s\n", messages.c_str(), ec.message().c_str());
            return 1;
        }
        // 60 % with one or two attachments: of those, nine in ten kept
        // decoded under Attachments, one in twenty in .emlxpart files, the
        // rest in the message.
        const bool withParts = r.below(100) < 60;
        const int parts = withParts ? 1 + int(r.below(4) == 0) : 0;
        const uint64_t where = r.below(20);
        const bool decoded = withParts && where < 18;
        const bool emlxpart = withParts && where == 18;
        const std::string mixed = "--Apple-Mail=_M" + std::to_string(number);
        std::string m = "From: " + std::string(kPeople[r.below(8)]) + " <sender" +
                        std::to_string(r.below(50)) + "@example.org>\nTo: " + kPeople[r.below(8)] +
                        " <anna@mail.example.org>\nSubject: " + Words(r, 30, false) +
                        "Date: Fri, " + std::to_string(1 + r.below(28)) + " Apr 2023 1" +
                        std::to_string(r.below(10)) + ":2" + std::to_string(r.below(10)) +
                        ":00 +0200\nMessage-Id: <" + std::to_string(number) +
                        "@example.org>\nMime-Version: 1.0 (Mac OS X Mail 16.0)\n"
                        "Content-Type: multipart/mixed; boundary=\"Apple-Mail=_M" +
                        std::to_string(number) + "\"\n\n\n" + mixed +
                        "\nContent-Transfer-Encoding: 8bit\nContent-Type: text/plain;\n"
                        "\tcharset=utf-8\n\n" +
                        Words(r, r.between(1 << 10, 12 << 10), false);
        std::string partFiles[2];
        for (int p = 0; p < parts; ++p) {
            const size_t size =
                r.below(100) == 0 ? r.between(1 << 20, 2 << 20) : r.between(8 << 10, 60 << 10);
            const std::string name =
                "scan" + std::to_string(number) + "-" + std::to_string(p + 2) + ".pdf";
            m += "\n" + mixed + "\nContent-Disposition: attachment;\n\tfilename=" + name +
                 "\nContent-Type: application/pdf;\n\tname=\"" + name +
                 "\"\nContent-Transfer-Encoding: base64\n";
            std::string body;
            Base64Lines(r, size, body);
            if (decoded) {
                m += "X-Apple-Content-Length: " +
                     std::to_string(body.size() + std::count(body.begin(), body.end(), '\n')) +
                     "\n\n";
                const fs::path at =
                    data / "Attachments" / std::to_string(number) / std::to_string(p + 2);
                fs::create_directories(at, ec);
                const std::string bin = Base64Decode(body);
                if (ec || !WriteAll(at / name, bin))
                    return fprintf(stderr, "cannot write %s\n", (at / name).c_str()), 1;
                bytes += bin.size();
                folders += 2;
                ++decodedParts;
            } else if (emlxpart) {
                m += "X-Apple-Content-Length: " + std::to_string(body.size()) + "\n\n\n";
                partFiles[p] = body;
                ++emlxparts;
            } else {
                m += "\n" + body;
            }
        }
        m += "\n" + mixed + "--\n";
        const bool partial = decoded || emlxpart;
        const std::string name = std::to_string(number) + (partial ? ".partial.emlx" : ".emlx");
        if (!WriteAll(messages / name, std::to_string(m.size()) + "\n", m, kTrailer))
            return 1;
        bytes += m.size() + sizeof kTrailer;
        for (int p = 0; p < parts && emlxpart; ++p) {
            if (!WriteAll(messages /
                              (std::to_string(number) + "." + std::to_string(p + 2) + ".emlxpart"),
                          partFiles[p]))
                return 1;
            bytes += partFiles[p].size();
        }
    }
    printf("%llu messages in today's layout, %llu parts under Attachments, %llu .emlxpart "
           "files, %llu folders, %.1f MB\n",
           static_cast<unsigned long long>(count), static_cast<unsigned long long>(decodedParts),
           static_cast<unsigned long long>(emlxparts), static_cast<unsigned long long>(folders),
           bytes / 1e6);
    return 0;
}

int Measure(const char* out, char** argv) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid < 0)
        return perror("fork"), 1;
    if (pid == 0) {
        const int fd = open(out, O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (fd < 0 || dup2(fd, STDOUT_FILENO) < 0)
            _exit(127);
        close(fd);
        execvp(argv[0], argv);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    while (wait4(pid, &status, 0, &usage) < 0)
        if (errno != EINTR)
            return perror("wait4"), 1;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    printf("%.3f %ld %d\n", seconds, usage.ru_maxrss,
           WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    return 0;
}

int Copy(const char* dir, const char* out) {
    const int to = out ? open(out, O_WRONLY | O_CREAT | O_TRUNC, 0600) : -1;
    if (out && to < 0)
        return perror(out), 1;
    std::vector<char> buffer(128 * 1024);
    std::error_code error;
    for (fs::recursive_directory_iterator it(dir, error), end; !error && it != end;
         it.increment(error)) {
        if (!it->is_regular_file() || it->path().filename() == ".done")
            continue;
        const int from = open(it->path().c_str(), O_RDONLY);
        if (from < 0)
            return perror(it->path().c_str()), 1;
        ssize_t n;
        while ((n = read(from, buffer.data(), buffer.size())) > 0)
            if (to >= 0 && write(to, buffer.data(), size_t(n)) != n)
                return perror("write"), 1;
        close(from);
    }
    if (to >= 0)
        close(to);
    return error ? (fprintf(stderr, "%s\n", error.message().c_str()), 1) : 0;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 4 && strcmp(argv[1], "generate") == 0)
        return Generate(argv[2], strtoull(argv[3], nullptr, 10));
    if (argc == 4 && strcmp(argv[1], "generate-modern") == 0)
        return GenerateModern(argv[2], strtoull(argv[3], nullptr, 10));
    if ((argc == 3 || argc == 4) && strcmp(argv[1], "copy") == 0)
        return Copy(argv[2], argc == 4 ? argv[3] : nullptr);
    if (argc >= 4 && strcmp(argv[1], "measure") == 0)
        return Measure(argv[2], argv + 3);
    fprintf(stderr,
            "usage: %s generate DIR N | generate-modern DIR N | copy DIR [OUT] | measure OUT "
            "CMD [ARGS...]\n",
            argv[0]);
    return 2;
}
