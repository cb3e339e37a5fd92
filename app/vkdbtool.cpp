// vkdbtool: creates and edits the suite data file. VKstats itself only reads
// the file, so this is how users (and the tests) put proxies and values in it.

#include "SuiteDatabase.h"

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTextStream>

#include <cstdio>
#include <functional>
#include <memory>

namespace {

const QString Tool = QStringLiteral("vkdbtool");

enum ExitCode {
    ExitOk = 0,
    ExitUsage = 1,
    ExitMissing = 2,
    ExitNotDataFile = 3,
    ExitLocked = 4,
    ExitNotFound = 5,
    ExitExists = 6,
    ExitFailed = 7,
};

const char ExitCodesHelp[] =
    "Exit codes:\n"
    "  0  success\n"
    "  1  wrong use: unknown command, missing or extra arguments, a bad option\n"
    "     value (port, proxy kind, format), a proxy name with a comma or a line\n"
    "     break, or a value name that is empty or has a line break\n"
    "  2  FILE does not exist\n"
    "  3  FILE is not a suite data file: not SQLite, another program's database,\n"
    "     an unknown format version, damaged or cut short\n"
    "  4  FILE is locked by another program; try again when it has finished\n"
    "  5  no proxy or value of that name\n"
    "  6  already there: a proxy of that name, or FILE for create\n"
    "  7  any other failure, such as a file that cannot be read or written\n";

QTextStream& out() {
    static QTextStream stream(stdout);
    return stream;
}

QTextStream& err() {
    static QTextStream stream(stderr);
    return stream;
}

// Messages stay on one line whatever a name holds, so that scripts can read
// them; control characters are shown escaped.
QString printable(const QString& text) {
    QString result;
    result.reserve(text.size());
    for (const QChar c : text) {
        if (c == u'\n')
            result += QStringLiteral("\\n");
        else if (c == u'\r')
            result += QStringLiteral("\\r");
        else if (c.category() == QChar::Other_Control)
            result += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            result += c;
    }
    return result;
}

int report(int code, const QString& where, const QString& text) {
    err() << Tool << ": " << printable(where) << ": " << printable(text) << Qt::endl;
    return code;
}

int usageError(const QString& command, const QString& text) {
    const QString who = command.isEmpty() ? Tool : Tool + u' ' + command;
    const QString hint =
        command.isEmpty() ? Tool + QStringLiteral(" --help") : who + QStringLiteral(" --help");
    err() << who << ": " << printable(text) << " (see " << hint << ")" << Qt::endl;
    return ExitUsage;
}

int exitCodeFor(int error) {
    switch (error) {
    case TVKDB::NoError:
        return ExitOk;
    case TVKDB::ErrorMissing:
        return ExitMissing;
    case TVKDB::ErrorNotDataFile:
    case TVKDB::ErrorDamaged:
        return ExitNotDataFile;
    case TVKDB::ErrorLocked:
        return ExitLocked;
    case TVKDB::ErrorNotFound:
        return ExitNotFound;
    case TVKDB::ErrorExists:
        return ExitExists;
    case TVKDB::ErrorBadEntry:
        return ExitUsage;
    default:
        return ExitFailed;
    }
}

QString messageFor(int error, const QString& text) {
    switch (error) {
    case TVKDB::ErrorMissing:
        return QStringLiteral("no such file");
    case TVKDB::ErrorNotDataFile:
        return QStringLiteral("not a suite data file (%1)").arg(text);
    case TVKDB::ErrorDamaged:
        return QStringLiteral("not a suite data file (damaged: %1)").arg(text);
    case TVKDB::ErrorLocked:
        return QStringLiteral("the data file is locked by another program; try again when it "
                              "has finished (%1)")
            .arg(text);
    default:
        return text;
    }
}

int reportDatabase(const QString& path, int error, const QString& text) {
    return report(exitCodeFor(error), path, messageFor(error, text));
}

// Opens the data file in whichever format it has; null after reporting why
// it cannot be used.
std::unique_ptr<TVKDB> openDataFile(const QString& path, int* exitCode) {
    int version = 0;
    QString why;
    if (const int code = TVKDB::probe(path, &version, &why)) {
        *exitCode = reportDatabase(path, code, why);
        return nullptr;
    }
    std::unique_ptr<TVKDB> db;
    if (version == 1)
        db = std::make_unique<TVKDB1>(path);
    else
        db = std::make_unique<TVKDB2>(path);
    if (db->error() != 0) {
        *exitCode = reportDatabase(path, db->error(), db->errorText());
        return nullptr;
    }
    return db;
}

QString withSlashes(QString record) {
    return record.replace(QChar(0x00AD), u'/');
}

struct Command {
    QString name;
    QStringList arguments; // positional, in order; each "NAME: description"
    QString synopsis;      // the usage line after the command's name
    QString summary;       // one line for the command list
    QString description;
    std::function<void(QCommandLineParser&)> addOptions;
    std::function<int(const QCommandLineParser&, const QStringList&)> run;
};

const QCommandLineOption FormatOption(QStringLiteral("format"),
                                      QStringLiteral("Format version of the new file, 1 or 2 "
                                                     "(default 2)."),
                                      QStringLiteral("1|2"), QStringLiteral("2"));
const QCommandLineOption KindOption(QStringLiteral("kind"),
                                    QStringLiteral("The proxy's kind: http or socks5."),
                                    QStringLiteral("http|socks5"));
const QCommandLineOption HostOption(QStringLiteral("host"),
                                    QStringLiteral("The proxy's host name or address."),
                                    QStringLiteral("HOST"));
const QCommandLineOption PortOption(QStringLiteral("port"),
                                    QStringLiteral("The proxy's port, 1 to 65535."),
                                    QStringLiteral("PORT"));
const QCommandLineOption UserOption(QStringLiteral("user"),
                                    QStringLiteral("User name for the proxy (optional)."),
                                    QStringLiteral("USER"));
const QCommandLineOption PasswordFileOption(
    QStringLiteral("password-file"),
    QStringLiteral("Read the proxy's password from the first line of FILE, or from standard "
                   "input when FILE is -; needs --user."),
    QStringLiteral("FILE"));
// Refused with a pointer to --password-file: on the command line a password
// is visible to every local user (ps, /proc).
const QCommandLineOption PasswordOption = [] {
    QCommandLineOption option(QStringLiteral("password"), QString(), QStringLiteral("PASSWORD"));
    option.setFlags(QCommandLineOption::HiddenFromHelp);
    return option;
}();
const QCommandLineOption HiddenOption(QStringLiteral("hidden"),
                                      QStringLiteral("Store the proxy without offering it in "
                                                     "VKstats' proxy list."));

// The data file holds proxy passwords: only its owner may read it.
bool restrictToOwner(const QString& path) {
    return QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner);
}

// The first line of a file, or of standard input for "-", without its line end.
bool readPassword(const QString& source, QString& password, QString& error) {
    QFile file;
    const bool opened = source == QLatin1String("-")
                            ? file.open(stdin, QIODevice::ReadOnly)
                            : (file.setFileName(source), file.open(QIODevice::ReadOnly));
    if (!opened) {
        error = file.errorString();
        return false;
    }
    // A password is short; a line without end is cut rather than read whole.
    QByteArray line = file.readLine(64 * 1024);
    while (line.endsWith('\n') || line.endsWith('\r'))
        line.chop(1);
    password = QString::fromUtf8(line);
    return true;
}

int runCreate(const QCommandLineParser& parser, const QStringList& args) {
    const QString path = args.at(0);
    const QString format = parser.value(FormatOption);
    if (format != QLatin1String("1") && format != QLatin1String("2"))
        return usageError(QStringLiteral("create"),
                          QStringLiteral("unknown format \"%1\" (use 1 or 2)").arg(format));
    // A dangling link counts too: SQLite would create the file it points to.
    const QFileInfo info(path);
    if (info.exists() || info.isSymLink())
        return report(ExitExists, path, QStringLiteral("exists already; create never overwrites"));
    if (!QDir().mkpath(info.absolutePath()))
        return report(ExitFailed, info.absolutePath(), QStringLiteral("cannot make the folder"));
    QString error;
    if (!TVKDB::create(path, format.toInt(), &error)) {
        // The library's text names the path already.
        err() << Tool << ": " << printable(error) << Qt::endl;
        return ExitFailed;
    }
    if (!restrictToOwner(path))
        return report(ExitFailed, path, QStringLiteral("cannot make it private to its owner"));
    return ExitOk;
}

int runAddProxy(const QCommandLineParser& parser, const QStringList& args) {
    const QString command = QStringLiteral("add-proxy");
    for (const QCommandLineOption* required : {&KindOption, &HostOption, &PortOption}) {
        if (!parser.isSet(*required))
            return usageError(
                command, QStringLiteral("--%1 is required").arg(required->names().constFirst()));
    }
    ProxyEntry entry;
    entry.name = args.at(1);
    entry.kind = parser.value(KindOption).trimmed().toLower();
    if (entry.kind != QLatin1String("http") && entry.kind != QLatin1String("socks5"))
        return usageError(command, QStringLiteral("unknown proxy kind \"%1\" (use http or socks5)")
                                       .arg(parser.value(KindOption)));
    entry.host = parser.value(HostOption).trimmed();
    bool portOk = false;
    entry.port = parser.value(PortOption).trimmed().toInt(&portOk);
    if (!portOk || entry.port < 1 || entry.port > 65535)
        return usageError(command, QStringLiteral("bad port \"%1\" (use a number from 1 to 65535)")
                                       .arg(parser.value(PortOption)));
    if (parser.isSet(PasswordOption))
        return usageError(command,
                          QStringLiteral("--password is not accepted: other users can read "
                                         "the command line; use --password-file FILE, "
                                         "or --password-file - for standard input"));
    if (parser.isSet(PasswordFileOption) && !parser.isSet(UserOption))
        return usageError(command, QStringLiteral("--password-file needs --user"));
    entry.user = parser.value(UserOption);
    if (parser.isSet(PasswordFileOption)) {
        const QString source = parser.value(PasswordFileOption);
        QString error;
        if (!readPassword(source, entry.password, error))
            return report(ExitFailed, source, error);
    }
    entry.hidden = parser.isSet(HiddenOption);
    if (const QString problem = TVKDB::checkProxyEntry(entry); !problem.isEmpty())
        return usageError(command, problem);

    int exitCode = ExitOk;
    const auto db = openDataFile(args.at(0), &exitCode);
    if (!db)
        return exitCode;
    if (!db->addProxy(entry))
        return reportDatabase(args.at(0), db->error(), db->errorText());
    if (!entry.password.isEmpty() && !restrictToOwner(args.at(0)))
        return report(ExitFailed, args.at(0),
                      QStringLiteral("cannot make it private to its owner"));
    return ExitOk;
}

int runListProxies(const QCommandLineParser&, const QStringList& args) {
    int exitCode = ExitOk;
    const auto db = openDataFile(args.at(0), &exitCode);
    if (!db)
        return exitCode;
    QStringList records;
    if (!db->getProxyRecords(records))
        return reportDatabase(args.at(0), db->error(), db->errorText());
    for (const QString& stored : std::as_const(records)) {
        const QString record = withSlashes(stored);
        out() << record << '\n';
        QStringList settings;
        if (!TVKDB::proxyRecordToSettings(record, settings))
            out() << "  (not usable: a field is missing or malformed)\n";
        for (const QString& line : std::as_const(settings))
            out() << "  " << line << '\n';
    }
    return ExitOk;
}

int runDeleteProxy(const QCommandLineParser&, const QStringList& args) {
    int exitCode = ExitOk;
    const auto db = openDataFile(args.at(0), &exitCode);
    if (!db)
        return exitCode;
    if (!db->deleteProxy(args.at(1)))
        return reportDatabase(args.at(0), db->error(), db->errorText());
    return ExitOk;
}

// Names of values are looked up whole and listed as name=value, so a name
// must fit on one line and must not be empty.
QString valueNameProblem(const QString& name) {
    if (name.isEmpty())
        return QStringLiteral("a value needs a name");
    if (name.contains(u'\n') || name.contains(u'\r'))
        return QStringLiteral("a value name cannot hold line breaks");
    return {};
}

int runSet(const QCommandLineParser&, const QStringList& args) {
    if (const QString problem = valueNameProblem(args.at(1)); !problem.isEmpty())
        return usageError(QStringLiteral("set"), problem);
    int exitCode = ExitOk;
    const auto db = openDataFile(args.at(0), &exitCode);
    if (!db)
        return exitCode;
    if (!db->writeValue(args.at(1), args.at(2)))
        return reportDatabase(args.at(0), db->error(), db->errorText());
    return ExitOk;
}

// Opens the file and checks that the value is there; null after reporting.
std::unique_ptr<TVKDB> openWithValue(const QStringList& args, int* exitCode) {
    auto db = openDataFile(args.at(0), exitCode);
    if (!db)
        return nullptr;
    const QStringList names = db->valueNames();
    if (db->error() != 0) {
        *exitCode = reportDatabase(args.at(0), db->error(), db->errorText());
        return nullptr;
    }
    if (!names.contains(args.at(1))) {
        *exitCode = report(ExitNotFound, args.at(0),
                           QStringLiteral("no value named \"%1\"").arg(args.at(1)));
        return nullptr;
    }
    return db;
}

int runGet(const QCommandLineParser&, const QStringList& args) {
    int exitCode = ExitOk;
    const auto db = openWithValue(args, &exitCode);
    if (!db)
        return exitCode;
    const QString value = db->readValue(args.at(1));
    if (db->error() != 0)
        return reportDatabase(args.at(0), db->error(), db->errorText());
    out() << value << '\n';
    return ExitOk;
}

int runList(const QCommandLineParser&, const QStringList& args) {
    int exitCode = ExitOk;
    const auto db = openDataFile(args.at(0), &exitCode);
    if (!db)
        return exitCode;
    const QStringList names = db->valueNames();
    QStringList lines;
    for (const QString& name : names)
        lines << name + u'=' + db->readValue(name);
    if (db->error() != 0)
        return reportDatabase(args.at(0), db->error(), db->errorText());
    for (const QString& line : std::as_const(lines))
        out() << line << '\n';
    return ExitOk;
}

int runDelete(const QCommandLineParser&, const QStringList& args) {
    int exitCode = ExitOk;
    const auto db = openWithValue(args, &exitCode);
    if (!db)
        return exitCode;
    if (!db->deleteValue(args.at(1)))
        return reportDatabase(args.at(0), db->error(), db->errorText());
    return ExitOk;
}

const QString FileArgument = QStringLiteral("FILE: The suite data file, usually vk.dbc in "
                                            "VKstats' program folder.");

const QList<Command>& commands() {
    static const QList<Command> list = {
        {QStringLiteral("create"),
         {FileArgument},
         QStringLiteral("FILE [--format 1|2]"),
         QStringLiteral("make a new, empty data file"),
         QStringLiteral("Makes a new, empty suite data file. Format 2 keeps one column per\n"
                        "proxy field; format 1 keeps each proxy as one line, as early releases\n"
                        "of the suite did. An existing file is never overwritten. Missing\n"
                        "folders on the way are made; the file is readable by its owner only."),
         [](QCommandLineParser& p) { p.addOption(FormatOption); },
         runCreate},
        {QStringLiteral("add-proxy"),
         {FileArgument, QStringLiteral("NAME: The name VKstats shows for the proxy; no commas or "
                                       "line breaks. Names are compared ignoring case.")},
         QStringLiteral("FILE NAME --kind http|socks5 --host HOST --port PORT\n"
                        "           [--user USER --password-file FILE|-] [--hidden]"),
         QStringLiteral("store a proxy"),
         QStringLiteral("Stores a proxy that VKstats offers for its downloads. For Tor use\n"
                        "--kind socks5 --host 127.0.0.1 --port 9050; a user and password of\n"
                        "their own per proxy make Tor keep that proxy's connections apart.\n"
                        "The user and password are stored percent-encoded, so they may hold\n"
                        "any character. The password is read from a file or standard input,\n"
                        "never taken from the command line, and a file holding one is made\n"
                        "readable by its owner only (mode 0600)."),
         [](QCommandLineParser& p) {
             p.addOptions({KindOption, HostOption, PortOption, UserOption, PasswordFileOption,
                           PasswordOption, HiddenOption});
         },
         runAddProxy},
        {QStringLiteral("list-proxies"),
         {FileArgument},
         QStringLiteral("FILE"),
         QStringLiteral("show the proxy records and their settings"),
         QStringLiteral("Prints each stored proxy record as VKstats reads it, in the order\n"
                        "stored:\n"
                        "  name,kind,hidden,host,port,user,password\n"
                        "where hidden is a single blank for a proxy that is not offered and\n"
                        "user and password are percent-encoded. Below each record follow the\n"
                        "name=value settings the downloads get from it (kind, host, port,\n"
                        "user, password), indented by two blanks."),
         nullptr,
         runListProxies},
        {QStringLiteral("delete-proxy"),
         {FileArgument, QStringLiteral("NAME: The proxy's name, exactly as stored.")},
         QStringLiteral("FILE NAME"),
         QStringLiteral("remove a proxy"),
         QStringLiteral("Removes the proxy of that name."),
         nullptr,
         runDeleteProxy},
        {QStringLiteral("set"),
         {FileArgument, QStringLiteral("NAME: The value's name, such as statslastsource."),
          QStringLiteral("VALUE: The text to store.")},
         QStringLiteral("FILE NAME VALUE"),
         QStringLiteral("store a named value"),
         QStringLiteral("Stores a named value, replacing the one of that name."),
         nullptr,
         runSet},
        {QStringLiteral("get"),
         {FileArgument, QStringLiteral("NAME: The value's name.")},
         QStringLiteral("FILE NAME"),
         QStringLiteral("print a named value"),
         QStringLiteral("Prints the value of that name."),
         nullptr,
         runGet},
        {QStringLiteral("list"),
         {FileArgument},
         QStringLiteral("FILE"),
         QStringLiteral("print all named values as name=value"),
         QStringLiteral("Prints every named value as name=value, sorted by name."),
         nullptr,
         runList},
        {QStringLiteral("delete"),
         {FileArgument, QStringLiteral("NAME: The value's name.")},
         QStringLiteral("FILE NAME"),
         QStringLiteral("remove a named value"),
         QStringLiteral("Removes the value of that name."),
         nullptr,
         runDelete},
    };
    return list;
}

const Command* findCommand(const QString& name) {
    for (const Command& command : commands()) {
        if (command.name == name)
            return &command;
    }
    return nullptr;
}

// Qt's usage line names the executable as it was started; ours names the
// command instead, so only the option and argument lists are taken over.
QString optionsPart(const QCommandLineParser& parser) {
    const QString text = parser.helpText();
    const qsizetype options = text.indexOf(QStringLiteral("Options:"));
    return options < 0 ? QString() : text.mid(options);
}

QString mainHelp(const QCommandLineParser& parser) {
    QString text = QStringLiteral("Usage: vkdbtool COMMAND [options] [arguments]\n\n"
                                  "Creates and edits the suite data file (vk.dbc) from which "
                                  "VKstats reads\nits proxies and a few remembered values. "
                                  "VKstats itself only reads it.\n\nCommands:\n");
    for (const Command& command : commands())
        text += QStringLiteral("  %1  %2\n").arg(command.name, -13).arg(command.summary);
    text += QStringLiteral("  %1  %2\n")
                .arg(QStringLiteral("help"), -13)
                .arg(QStringLiteral("show this text, or with a command its own"));
    text += QStringLiteral("\nRun \"vkdbtool COMMAND --help\" for a command's arguments.\n\n");
    text += QLatin1String(ExitCodesHelp);
    text += u'\n' + optionsPart(parser);
    return text;
}

QString commandHelp(const Command& command, const QCommandLineParser& parser) {
    return QStringLiteral("Usage: vkdbtool %1 %2\n\n%3\n\n")
               .arg(command.name, command.synopsis, command.description) +
           optionsPart(parser) +
           QStringLiteral("\nExit codes are listed by \"vkdbtool --help\".\n");
}

void setUpCommandParser(const Command& command, QCommandLineParser& parser) {
    parser.addHelpOption();
    if (command.addOptions)
        command.addOptions(parser);
    for (const QString& argument : command.arguments) {
        const qsizetype colon = argument.indexOf(u':');
        parser.addPositionalArgument(argument.left(colon), argument.mid(colon + 2));
    }
}

int runTool(const QStringList& arguments) {
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("COMMAND"), QStringLiteral("What to do."));
    if (!parser.parse(arguments))
        return usageError({}, parser.errorText());
    if (parser.isSet(help)) {
        out() << mainHelp(parser);
        return ExitOk;
    }
    if (parser.isSet(version)) {
        out() << Tool << ' ' << QCoreApplication::applicationVersion() << '\n';
        return ExitOk;
    }
    QStringList rest = parser.positionalArguments();
    if (rest.isEmpty())
        return usageError({}, QStringLiteral("no command given"));
    const QString name = rest.takeFirst();
    if (name == QLatin1String("help")) {
        if (rest.isEmpty()) {
            out() << mainHelp(parser);
            return ExitOk;
        }
        const Command* command = findCommand(rest.first());
        if (!command || rest.size() > 1)
            return usageError({}, QStringLiteral("help takes one command name"));
        QCommandLineParser sub;
        setUpCommandParser(*command, sub);
        out() << commandHelp(*command, sub);
        return ExitOk;
    }
    const Command* command = findCommand(name);
    if (!command)
        return usageError({}, QStringLiteral("unknown command \"%1\"").arg(name));

    QCommandLineParser sub;
    setUpCommandParser(*command, sub);
    if (!sub.parse(QStringList{arguments.value(0, Tool)} + rest))
        return usageError(command->name, sub.errorText());
    if (sub.isSet(QStringLiteral("help"))) {
        out() << commandHelp(*command, sub);
        return ExitOk;
    }
    const QStringList args = sub.positionalArguments();
    const qsizetype wanted = command->arguments.size();
    if (args.size() != wanted) {
        QStringList names;
        for (const QString& argument : command->arguments)
            names << argument.left(argument.indexOf(u':'));
        return usageError(command->name, QStringLiteral("%1 arguments; it takes %2")
                                             .arg(args.size() < wanted ? QStringLiteral("too few")
                                                                       : QStringLiteral("too many"),
                                                  names.join(u' ')));
    }
    return command->run(sub, args);
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(Tool);
    QCoreApplication::setApplicationVersion(QStringLiteral(VKSTATS_VERSION));
    const int code = runTool(QCoreApplication::arguments());
    out().flush();
    err().flush();
    return code;
}
