"""Finds names of the standard library and the system that a file uses without naming their header.

Such a file compiles as long as another header happens to bring the name along, and the next
release of a compiler ends that. A header counts if the file or the header of its own name includes
it. A name of std:: that no list knows is reported too, so that the lists stay complete.
"""

import re

# Names behind std::, by header. A name that several headers have stands with each of them.
STANDARD = {
    "algorithm": "ranges all_of any_of clamp copy copy_if copy_n count count_if equal fill fill_n find find_if "
                 "includes is_sorted lower_bound max max_element min none_of remove_if replace reverse rotate sort stable_sort transform unique "
                 "upper_bound",
    "array": "array size",
    "atomic": "atomic atomic_ref memory_order_acq_rel memory_order_acquire memory_order_relaxed "
              "memory_order_release",
    "bit": "bit_cast bit_ceil bit_floor countl_zero countr_zero endian popcount rotr",
    "charconv": "chars_format from_chars from_chars_result to_chars",
    "cmath": "abs ceil exp fabs fma fmax fmin isfinite llround log log10 log2 lround pow round sqrt trunc",
    "cstdint": "int8_t int16_t int32_t int64_t uint8_t uint16_t uint32_t uint64_t uintptr_t",
    "cstdlib": "abs",
    "deque": "deque",
    "barrier": "barrier",
    "condition_variable": "condition_variable",
    "exception": "set_terminate",
    "filesystem": "filesystem",
    "fstream": "ifstream ofstream",
    "functional": "function",
    "initializer_list": "initializer_list",
    "ios": "ios streamsize",
    "iostream": "cin cout cerr ios",
    "istream": "getline",
    "iterator": "back_inserter begin end istream_iterator istreambuf_iterator next size",
    "limits": "numeric_limits",
    "map": "map",
    "memory": "make_unique unique_ptr",
    "mutex": "lock_guard mutex unique_lock",
    "new": "nothrow",
    "numeric": "accumulate iota",
    "optional": "nullopt optional",
    "queue": "priority_queue",
    "regex": "regex regex_match regex_search smatch",
    "set": "set",
    "span": "span",
    "sstream": "istringstream ostringstream stringstream",
    "string": "erase erase_if getline stod stoi stoull string to_string",
    "string_view": "string_view",
    "system_error": "errc error_code",
    "thread": "thread",
    "type_traits": "has_unique_object_representations_v is_trivially_copyable_v "
                   "is_trivially_destructible_v",
    "utility": "exchange move pair swap",
    "unordered_set": "unordered_set", "vector": "erase erase_if vector",
}

# Functions, types and variables without std::, by header.
SYSTEM = {
    "cctype": "isalpha isdigit islower isspace isupper tolower toupper",
    "cerrno": "errno",
    "cmath": "abs exp fabs floor fmod log log2 pow round sqrt",
    "csignal": "kill raise sigaction sigemptyset signal",
    "cstdarg": "va_arg va_copy va_end va_start",
    "cstdio": "FILE stderr stdin stdout clearerr fclose fdopen ferror fflush fgets fileno fopen "
              "fprintf fputc fputs fread fseek fseeko ftell ftello fwrite getc perror printf "
              "putchar puts rename rewind setbuf setvbuf snprintf sscanf tmpfile vsnprintf",
    "cstdlib": "abort abs atoi calloc exit free getenv grantpt malloc mkdtemp posix_openpt ptsname "
               "qsort rand realloc srand strtod strtol strtoll strtoul system unlockpt",
    "cstring": "memchr memcmp memcpy memmove memset strchr strcmp strcspn strerror strlen strncmp "
               "strnlen strpbrk strrchr strspn strstr strtok_r",
    "ctime": "clock_gettime localtime_r nanosleep strftime time time_t",
    "dirent.h": "closedir opendir readdir",
    "fcntl.h": "fcntl open",
    "poll.h": "poll ppoll",
    "pthread.h": "pthread_attr_destroy pthread_attr_init pthread_create pthread_join",
    "sched.h": "sched_yield",
    "sys/file.h": "flock",
    "sys/mman.h": "madvise mmap mprotect munmap",
    "sys/resource.h": "getrlimit setrlimit",
    "sys/socket.h": "recv socketpair",
    "strings.h": "strcasecmp strncasecmp",
    "sys/time.h": "gettimeofday",
    "sys/stat.h": "chmod fstat lstat mkdir mkfifo",
    "sys/wait.h": "wait waitpid",
    "unistd.h": "_exit access chdir close dup dup2 ftruncate getcwd isatty lseek pipe pread read "
                "rmdir sleep sysconf truncate unlink usleep write",
}

# Headers that say in their own standard that they bring another along.
BRINGS = {
    "fstream": ("istream", "ios"), "sstream": ("istream", "ios"), "iostream": ("istream", "ios"),
    "string_view": ("iterator",), "string": ("initializer_list", "iterator"),
    "vector": ("initializer_list", "iterator"), "array": ("iterator",), "span": ("iterator",),
    "map": ("initializer_list", "utility"), "set": ("initializer_list",),
    "filesystem": ("system_error",), "charconv": ("system_error",),
    "algorithm": ("initializer_list",), "utility": ("initializer_list",),
}


def by_name(lists):
    """The headers of each name."""
    found = {}
    for header, names in lists.items():
        for name in names.split():
            found.setdefault(name, set()).add(header)
    return found


STANDARD_NAMES = by_name(STANDARD)
SYSTEM_NAMES = by_name(SYSTEM)
QUALIFIED = re.compile(r"\bstd::(\w+)")
# Used without a call; other words of these lists may name a variable of our own.
OBJECT = re.compile(r"(?<![\w.>:])(errno|FILE|stderr|stdin|stdout|time_t)\b")
# Macros by the form of their names; EOF and our own EPD are no errors.
MACROS = (
    (re.compile(r"(?<!\w)(E(?!OF\b|PD\b|CO\b|NTRY\b)[A-Z]{3,})(?!\w)"), "cerrno"),
    (re.compile(r"(?<!\w)((?:CHAR|SHRT|INT|LONG|LLONG|UINT|ULONG|PATH|NAME)_(?:MAX|MIN))(?!\w)"),
     "climits"),
    (re.compile(r"(?<!\w)(PRI[a-zX]+\d+)(?!\w)"), "cinttypes"),
)
CALL = re.compile(r"(?<![\w.>:])(?:::)?([a-z_]\w*)\s*\(")
# A loop over values in braces makes a list of them.
BRACED_LOOP = re.compile(r"\bfor \([^;()]*:\s*\{")
INCLUDE = re.compile(r'^#include <([^>]+)>', re.MULTILINE)


def headers_of(text):
    """The standard headers that a text includes, with those that they promise."""
    named = set(INCLUDE.findall(text))
    return named | {other for header in named for other in BRINGS.get(header, ())}


def missing_headers(text, own_header, code):
    """Line number and complaint of each name whose header is missing. text is the whole file,
    own_header that of its own header or nothing, code its lines without literals and comments."""
    headers = headers_of(text) | headers_of(own_header)
    told = set()
    for number, line in enumerate(code, 1):
        uses = [(f"std::{name}", STANDARD_NAMES.get(name)) for name in QUALIFIED.findall(line)]
        uses += [(name, SYSTEM_NAMES[name]) for name in CALL.findall(line) if name in SYSTEM_NAMES]
        uses += [(name, SYSTEM_NAMES[name]) for name in OBJECT.findall(line)]
        uses += [(name, {header}) for form, header in MACROS for name in form.findall(line)]
        if BRACED_LOOP.search(line):
            uses.append(("a loop over a list in braces", {"initializer_list"}))
        for name, wanted in uses:
            if name in told:
                continue
            if wanted is None:
                yield number, f"{name} stands in no list of standard_names.py"
            elif not wanted & headers:
                yield number, f"{name} without <{'> or <'.join(sorted(wanted))}>"
            else:
                continue
            told.add(name)
