-- SWUpdate's handler of the stick archive in an image made by "kelpack swu". SWUpdate loads this
-- file when it starts, from Lua's search path, which kelswu-start sets to this folder alone; an
-- image names the handler but carries no code. The archive, its sha256 checked by SWUpdate while
-- it is copied, is installed by the kelswu script beside this file; its exit status is the
-- installation's result and its output goes to SWUpdate's log and the server.
local installer = "/usr/lib/kelgate/kelswu"
local archive = "/var/lib/kelswu/stick.tar"

local function install(image)
    local err, msg = image:copy2file(archive)
    if err ~= 0 then
        swupdate.error(string.format(
            "kelswu: %s cannot be written: %s: check the free space of its folder", archive,
            tostring(msg)))
        return 1
    end
    -- Each line goes on as it comes, since SWUpdate keeps only so many unread ones; the last one
    -- waits for the exit status, as the reason of a failure.
    local run = io.popen(installer .. " " .. archive .. " 2>&1")
    local held
    for line in run:lines() do
        if held then
            swupdate.info(held)
        end
        held = line
    end
    local ok = run:close()
    if held then
        (ok and swupdate.info or swupdate.error)(held)
    end
    return ok and 0 or 1
end

swupdate.register_handler("kelswu", install, swupdate.HANDLER_MASK.IMAGE_HANDLER)
