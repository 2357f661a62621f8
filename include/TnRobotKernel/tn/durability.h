/// @file
/// How far bytes have come when a saver answers that it has saved them: Durability.

#ifndef TNROBOTKERNEL_TN_DURABILITY_H_
#define TNROBOTKERNEL_TN_DURABILITY_H_

namespace tn {

/// @addtogroup saving
/// @{

/// What a file that was saved has to survive. Either way it is replaced as a whole: whoever reads it
/// meanwhile, and whoever looks after the program was killed, finds the old file or the new one.
enum class Durability {
    /// The system has the new file. It survives the end of the program, however that comes. When the machine
    /// itself stops within the next seconds, the file may be the old one, the new one or, on some file systems,
    /// cut or empty. For what is saved often and can be made again: it costs no wait for the disk.
    kFlushed,
    /// The disk has the new file, and its directory knows it: it survives a power cut. The disk is waited for
    /// twice, mostly some milliseconds, where its file system knows such a thing.
    kSynced,
};

/// @}

}  // namespace tn

#endif  // TNROBOTKERNEL_TN_DURABILITY_H_
