// ZanthSample: a small access-control host on the C# binding. It opens the library to the
// controllers on a port, prints each controller's description when it connects, prints the
// events, alarms and door reports they send, and decides their card look-ups from a list of
// cards it grants.
//
//   mono ZanthSample.exe --port 3001 --valid ALL --grant 1001,3003 [--seconds 60]
//
// It runs until its input ends (Ctrl+D, or a closed pipe), Ctrl+C, or the given seconds, and
// ends with a summary. The texts of look-ups and decisions are the controllers' own business,
// not the library's; this host speaks the form the simulated controllers use:
//   look-up  "MAC;door;card;facility;"    decision "door;card;1;" grants, "door;card;0;" denies.

using System;
using System.Collections.Generic;
using System.Threading;
using Zanth;

namespace ZanthSample
{
    public static class Program
    {
        static readonly object print = new object();
        static int controllers, events, alarms, granted, denied, refused, postAccess, failures;

        static void Say(string line)
        {
            lock (print) Console.WriteLine(DateTime.Now.ToString("HH:mm:ss.fff") + " " + line);
        }

        static int Usage(string why)
        {
            Console.Error.WriteLine("ZanthSample: " + why);
            Console.Error.WriteLine("usage: ZanthSample.exe --port P [--valid LIST] [--grant CARD,CARD...] [--seconds N]");
            Console.Error.WriteLine("  --port P       the port the controllers connect to (1025 to 65535)");
            Console.Error.WriteLine("  --valid LIST   the controllers accepted: comma-separated MACs, or ALL (default)");
            Console.Error.WriteLine("  --grant LIST   the card numbers whose look-ups are granted; others are denied");
            Console.Error.WriteLine("  --seconds N    stop after N seconds (default: when the input ends or on Ctrl+C)");
            return 2;
        }

        public static int Main(string[] args)
        {
            int port = 0, seconds = 0;
            string valid = "ALL";
            var grant = new HashSet<string>();
            for (int i = 0; i < args.Length; i++)
            {
                string value = i + 1 < args.Length ? args[i + 1] : null;
                switch (args[i])
                {
                    case "--port":
                        if (!int.TryParse(value, out port)) return Usage("--port wants a number");
                        i++;
                        break;
                    case "--valid":
                        if (value == null) return Usage("--valid wants a list");
                        valid = value;
                        i++;
                        break;
                    case "--grant":
                        if (value == null) return Usage("--grant wants a list of cards");
                        foreach (string card in value.Split(',')) grant.Add(card.Trim());
                        i++;
                        break;
                    case "--seconds":
                        if (!int.TryParse(value, out seconds) || seconds < 1) return Usage("--seconds wants a number above 0");
                        i++;
                        break;
                    default:
                        return Usage("unknown argument " + args[i]);
                }
            }
            if (port == 0) return Usage("--port is required");

            ZanthLibrary zanth;
            try
            {
                zanth = new ZanthLibrary(port, valid);
            }
            catch (ArgumentException e)
            {
                return Usage(e.Message);
            }
            catch (ZanthException e)
            {
                Console.Error.WriteLine("ZanthSample: the library did not start: " + e.Message);
                return 1;
            }
            using (zanth)
            {
                Say("library " + ZanthApi.GetDLLVersion() + " listening on port " + port + ", valid " + valid);
                zanth.Connected += (s, e) =>
                {
                    Interlocked.Increment(ref controllers);
                    Say("connected " + e.Mac);
                    // The description is a command to the controller: asked off the library's
                    // notification thread, so that other notices aren't held up meanwhile.
                    ThreadPool.QueueUserWorkItem(_ => Describe(e.Mac));
                };
                zanth.Disconnected += (s, e) => Say("disconnected " + e.Mac);
                zanth.EventReported += (s, e) =>
                {
                    Interlocked.Increment(ref events);
                    Say("event " + e.Text);
                };
                zanth.AlarmReported += (s, e) =>
                {
                    Interlocked.Increment(ref alarms);
                    Say("alarm " + e.Text);
                };
                zanth.LookupReceived += (s, e) => Decide(e.Fields, grant);
                zanth.PostAccessReported += (s, e) =>
                {
                    Interlocked.Increment(ref postAccess);
                    Say("post-access " + e.Text);
                };
                zanth.HandlerFailed += (s, e) =>
                {
                    Interlocked.Increment(ref failures);
                    Say("handler of " + e.Kind + " failed: " + e.Exception.Message);
                };

                var stop = new ManualResetEvent(false);
                Console.CancelKeyPress += (s, e) =>
                {
                    e.Cancel = true;
                    stop.Set();
                };
                var input = new Thread(() =>
                {
                    while (Console.In.ReadLine() != null)
                    {
                    }
                    stop.Set();
                }) { IsBackground = true };
                input.Start();
                Say("running; end the input or press Ctrl+C to stop");
                stop.WaitOne(seconds > 0 ? seconds * 1000 : Timeout.Infinite);
                Say("stopping");
            }
            Say("summary: " + controllers + " connects, " + events + " events, " + alarms + " alarms, " +
                (granted + denied + refused) + " look-ups (" + granted + " granted, " + denied + " denied, " + refused +
                " refused by the controller), " +
                postAccess + " door reports, " + failures + " failures");
            return 0;
        }

        static void Describe(string mac)
        {
            try
            {
                Say("info " + mac + " " + ZanthApi.ControllerInfo(mac));
            }
            catch (ZanthException e)
            {
                Interlocked.Increment(ref failures);
                Say("info " + mac + " failed: " + e.Message);
            }
        }

        // A look-up "MAC;door;card;facility;": the door opens for a card on the grant list.
        static void Decide(string[] fields, HashSet<string> grant)
        {
            if (fields.Length < 3)
            {
                Say("look-up not understood: " + string.Join(";", fields));
                return;
            }
            string mac = fields[0], door = fields[1], card = fields[2];
            bool open = grant.Contains(card);
            try
            {
                int answer = ZanthApi.RecheckLookupCard(mac, door + ";" + card + ";" + (open ? 1 : 0) + ";");
                if (open) Interlocked.Increment(ref granted);
                else Interlocked.Increment(ref denied);
                Say("look-up " + mac + " door " + door + " card " + card + ": " + (open ? "granted" : "denied") +
                    " (controller answered " + answer + ")");
            }
            catch (ZanthException e) when (e.Code > -10000)
            {
                // The controller's own answer: no such look-up pending (it was decided already, say).
                Interlocked.Increment(ref refused);
                Say("look-up " + mac + " door " + door + " card " + card + ": the controller refused the decision (" +
                    e.Code + ")");
            }
            catch (ZanthException e)
            {
                Interlocked.Increment(ref failures);
                Say("look-up " + mac + " door " + door + " card " + card + ": the decision failed: " + e.Message);
            }
        }
    }
}
