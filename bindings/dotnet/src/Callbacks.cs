// The delegates handed to the library. A delegate's native entry point lives only as long as the
// delegate, and the library may call a callback from its own threads at any moment, until the
// process ends (there is no way to unregister): every delegate ever registered is kept here for
// the process's life. The slots also remember which delegate each kind holds now, so that
// ZanthLibrary registers its own once per process (registering again costs the library two
// seconds).

using System;
using System.Collections.Generic;

namespace Zanth
{
    internal static class Callbacks
    {
        static readonly object gate = new object();
        static readonly List<Delegate> kept = new List<Delegate>();
        static readonly Dictionary<string, Delegate> current = new Dictionary<string, Delegate>();

        public static void Keep(Delegate callback)
        {
            ExitGuard.Install();
            lock (gate)
            {
                if (!kept.Contains(callback)) kept.Add(callback);
            }
        }

        /// <summary>The library now calls `callback` for `kind` (a callback kind of the model).</summary>
        public static void Registered(string kind, Delegate callback)
        {
            lock (gate) current[kind] = callback;
        }

        public static Delegate Current(string kind)
        {
            lock (gate)
            {
                Delegate d;
                return current.TryGetValue(kind, out d) ? d : null;
            }
        }
    }
}
