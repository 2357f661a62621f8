// Levels and parameters of the logger library libTnRobotLog.so, for programs that log through
// TnRobotLogUtils. Nothing here needs to be linked: the library is opened at run time.
//
//   TnRobotLogUtils::Init();
//   TnRobotLogUtils::SetLogParam(TN_LOG_PARAM_FILE_LEVEL, TN_LOG_DEBUG);
//   TnRobotLogUtils::PrintLog(TN_LOG_WARNING, "the gripper is %d degrees too warm", nDegrees);
//   TnRobotLogUtils::Destroy();
//
// What is read from the environment, once, by TnRobotLogUtils::Init:
//   TNROBOT_LOG_FILE           path of the log file, a regular one or a character device; empty for
//                              no file. Without it the file is PROGRAM.log in the current
//                              directory. A relative path belongs to the directory that is current
//                              then. Missing directories are made.
//   TNROBOT_LOG_LEVEL          lowest level for the file, 0 to 6
//   TNROBOT_LOG_CONSOLE_LEVEL  lowest level for the standard error output, 0 to 6
//   NO_COLOR                   when not empty, no colours on a terminal either
//
// When a file is full, old files are renamed, and the next line begins a new one. Wherever the process is killed
// meanwhile, every line that had been written is in one of the files, whole, once and in its order; a number
// between two old files may be missing, or the newest file. A call that the system refuses, or a full disk, loses
// no line silently: it is told in the log as soon as that can be written, and on the standard error output at once.

#ifndef TNROBOTLOG_TNROBOTLOG_H_
#define TNROBOTLOG_TNROBOTLOG_H_

/// Level of a line. Levels below TN_LOG_TRACE are dropped, those above TN_LOG_CRITICAL count as it.
enum ETnRobotLogLevel : int {
    TN_LOG_TRACE = 0,     ///< every step
    TN_LOG_DEBUG = 1,     ///< what helps to find an error
    TN_LOG_INFO = 2,      ///< what happens in normal work
    TN_LOG_WARNING = 3,   ///< unexpected, but work goes on
    TN_LOG_ERROR = 4,     ///< something could not be done
    TN_LOG_CRITICAL = 5,  ///< work ends
    TN_LOG_OFF = 6,       ///< as a lowest level: nothing at all
};

/// What TnRobotLogUtils::SetLogParam sets: the first argument is one of these, the second the
/// value. A parameter or value that does not exist changes nothing; a warning line says so.
enum ETnRobotLogParam : int {
    TN_LOG_PARAM_FILE_LEVEL = 1,     ///< lowest level for the file, 0 to 6; TN_LOG_INFO at first
    TN_LOG_PARAM_CONSOLE_LEVEL = 2,  ///< lowest level for the standard error output, 0 to 6;
                                     ///< TN_LOG_WARNING at first
    TN_LOG_PARAM_FILE_SIZE = 3,      ///< largest size of a file in KiB, 1 to 1048576; 10240 at first
    TN_LOG_PARAM_OLD_FILES = 4,      ///< old files that are kept, 0 to 1000; 5 at first. Setting it
                                     ///< removes those above
    TN_LOG_PARAM_FLUSH_LEVEL = 5,    ///< lines of this level and above reach the file at once,
                                     ///< 0 to 6; TN_LOG_WARNING at first
    TN_LOG_PARAM_FLUSH = 6,          ///< writes what is buffered to the file now; the value is 0
};

/// What TnRobotLogUtils::Init answers when the library cannot make its logger. No logger is in use
/// then; Init may be called again.
enum ETnRobotLogResult : int {
    TN_LOG_RESULT_NO_POINTER = 1,  ///< the creation function was given no place for the logger
    TN_LOG_RESULT_NO_FILE = 2,     ///< the log file cannot be opened, or is a FIFO, a socket or a
                                   ///< directory
    TN_LOG_RESULT_NO_MEMORY = 3,   ///< not enough memory
};

#endif  // TNROBOTLOG_TNROBOTLOG_H_
