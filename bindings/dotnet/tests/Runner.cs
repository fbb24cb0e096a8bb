// The tests' runner. The library keeps one central object per process and opens its files in the
// working folder the moment it is loaded, so every test runs in a process of its own, in a
// sandbox of its own (a fresh folder, HOME and XDG_CONFIG_HOME), made here before that process
// starts and removed after it ends, with whatever programs the test started.
//
//   mono Zanth.Net.Tests.exe                 every test, one process each; progress and a summary
//   mono Zanth.Net.Tests.exe NAME...         those tests (CTest runs one per entry)
//   mono Zanth.Net.Tests.exe --list          the names
//   mono Zanth.Net.Tests.exe --check-list N1,N2,...   fails unless these are exactly the tests
//   --child NAME                             (inside the sandbox) runs the test in this process
//
// Environment: ZANTH_SIM (zanth-sim), ZANTH_SAMPLE (the sample host), LD_LIBRARY_PATH (where
// libzanth.so is), ZANTH_MONO (mono, for the children), ZANTH_TEST_TIMEOUT (seconds per test,
// 150), ZANTH_KEEP_SANDBOX (keep the sandboxes).

using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Reflection;

namespace Zanth.Tests
{
    [AttributeUsage(AttributeTargets.Method)]
    public sealed class TestAttribute : Attribute
    {
    }

    public static class Runner
    {
        static SortedDictionary<string, MethodInfo> Tests()
        {
            var tests = new SortedDictionary<string, MethodInfo>(StringComparer.Ordinal);
            foreach (Type t in typeof(Runner).Assembly.GetTypes())
            {
                foreach (MethodInfo m in t.GetMethods(BindingFlags.Public | BindingFlags.Static))
                {
                    if (m.GetCustomAttributes(typeof(TestAttribute), false).Length > 0) tests.Add(m.Name, m);
                }
            }
            return tests;
        }

        public static int Main(string[] args)
        {
            var tests = Tests();
            if (args.Length == 2 && args[0] == "--child") return Child(tests, args[1]);
            if (args.Length == 1 && args[0] == "--list")
            {
                foreach (string name in tests.Keys) Console.WriteLine(name);
                return 0;
            }
            if (args.Length == 2 && args[0] == "--check-list")
            {
                var given = new SortedSet<string>(args[1].Split(new[] { ',' }, StringSplitOptions.RemoveEmptyEntries));
                var missing = tests.Keys.Where(n => !given.Contains(n)).ToList();
                var unknown = given.Where(n => !tests.ContainsKey(n)).ToList();
                if (missing.Count == 0 && unknown.Count == 0)
                {
                    Console.WriteLine("all " + tests.Count + " tests are registered");
                    return 0;
                }
                if (missing.Count > 0) Console.Error.WriteLine("not registered: " + string.Join(", ", missing));
                if (unknown.Count > 0) Console.Error.WriteLine("registered but no such test: " + string.Join(", ", unknown));
                return 1;
            }
            var chosen = args.Length == 0 ? tests.Keys.ToList() : args.ToList();
            foreach (string name in chosen)
            {
                if (!tests.ContainsKey(name))
                {
                    Console.Error.WriteLine("no test named " + name + " (--list shows them)");
                    return 2;
                }
            }
            var failed = new List<string>();
            var watch = Stopwatch.StartNew();
            for (int i = 0; i < chosen.Count; i++)
            {
                Console.WriteLine("[" + (i + 1) + "/" + chosen.Count + "] " + chosen[i]);
                var one = Stopwatch.StartNew();
                bool ok = InSandbox(chosen[i]);
                Console.WriteLine("[" + (i + 1) + "/" + chosen.Count + "] " + chosen[i] + ": " +
                                  (ok ? "passed" : "FAILED") + " (" + one.Elapsed.TotalSeconds.ToString("F1") + " s)");
                if (!ok) failed.Add(chosen[i]);
            }
            Console.WriteLine((chosen.Count - failed.Count) + " of " + chosen.Count + " passed in " +
                              watch.Elapsed.TotalSeconds.ToString("F1") + " s" +
                              (failed.Count > 0 ? "; failed: " + string.Join(", ", failed) : ""));
            return failed.Count == 0 ? 0 : 1;
        }

        // The parent's side: the sandbox, the child process under a time limit, and the cleanup.
        static bool InSandbox(string name)
        {
            string dir = Path.Combine(Path.GetTempPath(), "zanth-dotnet-" + Guid.NewGuid().ToString("N").Substring(0, 12));
            string home = Path.Combine(dir, "home");
            Directory.CreateDirectory(Path.Combine(home, ".config"));
            int timeout = 150;
            int.TryParse(Environment.GetEnvironmentVariable("ZANTH_TEST_TIMEOUT") ?? "", out timeout);
            if (timeout <= 0) timeout = 150;
            string mono = Environment.GetEnvironmentVariable("ZANTH_MONO");
            if (string.IsNullOrEmpty(mono)) mono = Process.GetCurrentProcess().MainModule.FileName;
            var start = new ProcessStartInfo(mono,
                                             "--debug \"" + typeof(Runner).Assembly.Location + "\" --child " + name)
            {
                UseShellExecute = false,
                WorkingDirectory = dir,
            };
            start.EnvironmentVariables["HOME"] = home;
            start.EnvironmentVariables["XDG_CONFIG_HOME"] = Path.Combine(home, ".config");
            start.EnvironmentVariables[Sandbox.Variable] = dir;
            bool ok = false;
            try
            {
                using (Process child = Process.Start(start))
                {
                    if (child.WaitForExit(timeout * 1000))
                    {
                        ok = child.ExitCode == 0;
                    }
                    else
                    {
                        Console.Error.WriteLine(name + ": still running after " + timeout + " s: its threads, then stopped");
                        // Mono writes every managed thread's stack on SIGQUIT.
                        using (Process quit = Process.Start("kill", "-QUIT " + child.Id)) quit.WaitForExit();
                        child.WaitForExit(2000);
                        child.Kill();
                        child.WaitForExit();
                    }
                }
            }
            finally
            {
                Sandbox.StopLeftovers(dir);
                if (Environment.GetEnvironmentVariable("ZANTH_KEEP_SANDBOX") == null)
                {
                    try
                    {
                        Directory.Delete(dir, true);
                    }
                    catch (IOException)
                    {
                    }
                }
                else
                {
                    Console.WriteLine(name + ": sandbox kept in " + dir);
                }
            }
            return ok;
        }

        static int Child(SortedDictionary<string, MethodInfo> tests, string name)
        {
            MethodInfo test;
            if (!tests.TryGetValue(name, out test))
            {
                Console.Error.WriteLine("no test named " + name);
                return 2;
            }
            int code;
            try
            {
                test.Invoke(null, null);
                Console.WriteLine("PASS " + name);
                code = 0;
            }
            catch (TargetInvocationException e)
            {
                Console.WriteLine("FAIL " + name + ": " + e.InnerException);
                code = 1;
            }
            finally
            {
                Sandbox.StopAll();
            }
            Console.Out.Flush();
            // The library's threads may still be about: end the process here, not at their mercy.
            Environment.Exit(code);
            return code;
        }
    }
}
