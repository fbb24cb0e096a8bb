// The end of a mono process that the library has called into. Mono attaches a native thread the
// first time it calls a delegate, and at exit it aborts every attached thread and waits for it to
// end; the library's notification threads wait in native code and end only with the process, so
// mono would wait forever. Once one of them has called in, the process is ended here when mono
// begins to end it (ProcessExit): the console flushed, then the system's _exit with the exit code,
// as a native program's exit leaves its threads. ProcessExit handlers added after the first
// callback registration don't run then, nor do finalizers. .NET doesn't wait for such threads:
// nothing is done there.

using System;
using System.Runtime.InteropServices;
using System.Threading;

namespace Zanth
{
    internal static class ExitGuard
    {
        static int installed;
        static volatile bool entered;

        [DllImport("libc", EntryPoint = "_exit")]
        static extern void SystemExit(int code);

        /// <summary>Before a callback is handed to the library.</summary>
        public static void Install()
        {
            if (Type.GetType("Mono.Runtime") == null || Environment.OSVersion.Platform != PlatformID.Unix) return;
            if (Interlocked.Exchange(ref installed, 1) != 0) return;
            AppDomain.CurrentDomain.ProcessExit += (sender, args) =>
            {
                if (!entered) return;
                try
                {
                    Console.Out.Flush();
                    Console.Error.Flush();
                }
                catch (Exception)
                {
                }
                SystemExit(Environment.ExitCode);
            };
        }

        /// <summary>On a library thread, inside a callback.</summary>
        public static void Entered()
        {
            entered = true;
        }
    }
}
