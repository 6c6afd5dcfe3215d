-- Reopens a session the shared harness saved (the track with Varitap on it,
-- its parameters set) in a fresh ardour7-lua process and exports the master
-- bus again, as the harness did: RH_SESSION_DIR, RH_NEED (frames), RH_OUT_DIR.
local function env (k) return os.getenv (k) or "" end
local be = AudioEngine:set_backend ("None (Dummy)", "", "")
if not be or be:isnil () then print ("REOPEN FAIL backend") os.exit (3) end
be:set_driver ("50x Speed")
be:set_device_name ("Silence")
if not load_session (env ("RH_SESSION_DIR"), "realhost") then print ("REOPEN FAIL load") os.exit (3) end
local ex = Session:simple_export ()
if not ex:set_preset ("5e1f0b7a-7a1e-4c55-9d1a-0a7a11a9e5e7") then print ("REOPEN FAIL preset") os.exit (3) end
ex:set_name ("reopened")
ex:set_folder (env ("RH_OUT_DIR"))
ex:set_range (0, tonumber (env ("RH_NEED")))
if not ex:check_outputs () or not ex:run_export () then print ("REOPEN FAIL export") os.exit (3) end
print ("REOPEN exported " .. env ("RH_OUT_DIR") .. "/reopened.wav")
close_session ()
