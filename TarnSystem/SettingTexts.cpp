#include "TarnSystem/SettingTexts.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string>

namespace tarn {
namespace {

constexpr std::array<SettingTexts::Word, 2> tetheringWords = {{
    {"disable", {"Switch the phone's connection off", "Verbindung des Telefons abschalten"}},
    {"allow", {"Leave the phone's connection on", "Verbindung des Telefons bestehen lassen"}},
}};
constexpr std::array<SettingTexts::Word, 3> wifiOffWords = {{
    {"address", {"Take the addresses away, leave the radio on", "Adressen entziehen, Funk bleibt an"}},
    {"service", {"Switch the Wi-Fi service off", "WLAN-Dienst deaktivieren"}},
    {"radio", {"Switch the radio off", "Funk abschalten"}},
}};
constexpr std::array<SettingTexts::Word, 2> probeWords = {{
    {"dns", {"Ask a name server through the cable", "Einen Nameserver über das Kabel fragen"}},
    {"off", {"Do not verify", "Nicht prüfen"}},
}};

constexpr std::array<SettingTexts, 17> table = {{
    {"Enabled",
     {"Protection", "Schutz"},
     {"Whether Tarnlink keeps this computer from being on two networks at once. With false it switches Wi-Fi "
      "on whenever it is off, also where the user or another product has switched it off, and otherwise only "
      "watches. Where another product does the same, remove Tarnlink instead.",
      "Ob Tarnlink verhindert, dass dieser Computer in zwei Netzen zugleich ist. Mit false schaltet es "
      "WLAN ein, wann immer es aus ist, auch wenn der Benutzer oder ein anderes Produkt es abgeschaltet hat, "
      "und beobachtet sonst nur. Wo ein anderes Produkt dieselbe Aufgabe hat, ist stattdessen Tarnlink zu "
      "entfernen."}},
    {"RespectManualWiFiOff",
     {"Leave Wi-Fi off that the user switched off", "Vom Benutzer abgeschaltetes WLAN aus lassen"},
     {"Whether Wi-Fi that the user has switched off stays off while there is no wired path. With false "
      "Tarnlink switches it on again as soon as the cable is gone. Choose false for computers that must "
      "always "
      "be reachable.",
      "Ob WLAN, das der Benutzer abgeschaltet hat, ohne Kabelverbindung aus bleibt. Mit false schaltet "
      "Tarnlink es wieder ein, sobald das Kabel fehlt. false ist für Computer gedacht, die immer erreichbar "
      "sein müssen."}},
    {"FlushDNSCacheOnSwitch",
     {"Flush the DNS cache after a switch", "DNS-Zwischenspeicher nach dem Umschalten leeren"},
     {"Whether the cache of the system's resolver is flushed whenever the network in use has changed, so "
      "that "
      "names are not answered as the previous network knew them. Switch it off only when the same names mean "
      "the same everywhere and the first lookups after a switch take too long.",
      "Ob der Zwischenspeicher der Namensauflösung geleert wird, wenn das genutzte Netz gewechselt hat, "
      "damit "
      "Namen nicht mehr so beantwortet werden, wie das vorige Netz sie kannte. Nur abschalten, wenn "
      "dieselben "
      "Namen überall dasselbe bedeuten und die ersten Anfragen nach dem Umschalten zu lange dauern."}},
    {"TetheringWhileWired",
     {"Phones and tablets on USB beside a cable", "Telefone und Tablets an USB neben einem Kabel"},
     {"What happens to the connection that a phone or tablet shares over USB while a cable is used. With "
      "disable the computer does not use it, so that there is no second network. Choose allow where phones "
      "are only charged or synchronised and their connection does no harm.",
      "Was mit der Verbindung geschieht, die ein Telefon oder Tablet über USB teilt, während ein Kabel "
      "genutzt "
      "wird. Mit disable nutzt der Computer sie nicht, damit es kein zweites Netz gibt. allow ist für "
      "Umgebungen, in denen Telefone nur geladen oder abgeglichen werden und ihre Verbindung nicht schadet."},
     tetheringWords},
    {"TetheringDNSFix",
     {"Keep a phone's name server out of a VPN's way",
      "Nameserver eines Telefons hinter den des VPN stellen"},
     {"Whether a name server that a phone brings is put behind the others where it would hide those of a "
      "VPN, so that names of the organisation's own network are still found. Switch it off when the VPN's "
      "own "
      "software looks after this.",
      "Ob ein Nameserver, den ein Telefon mitbringt, hinter die übrigen gestellt wird, wo er die eines VPN "
      "verdecken würde. So werden Namen des eigenen Firmennetzes weiter gefunden. Abschalten, wenn die "
      "VPN-Software selbst dafür sorgt."}},
    {"SplitDNSFix",
     {"Keep a phone's name server out of a VPN's way (older name)",
      "Nameserver eines Telefons hinter den des VPN stellen (älterer Name)"},
     {"The older name of TetheringDNSFix, for profiles that have it already. Where both are set, in whatever "
      "layers, this one counts, even over a forced TetheringDNSFix: management that must be sure forces both "
      "alike. Otherwise leave it out.",
      "Der ältere Name von TetheringDNSFix, für Profile, die ihn schon enthalten. Sind beide gesetzt, in "
      "welcher Ebene auch immer, gilt dieser, auch gegen ein erzwungenes TetheringDNSFix: Wer sicher sein "
      "muss, erzwingt beide gleich. Sonst weglassen."}},
    {"WiFiOffMode",
     {"How Wi-Fi is taken off the network", "Wie WLAN vom Netz genommen wird"},
     {"What is done to Wi-Fi while the cable is used. With address it keeps its radio and loses its "
      "addresses, "
      "which comes back fastest and leaves services that need only the radio working. With service the "
      "network service is switched off. With radio the adapter is switched off; choose it where no radio may "
      "transmit.",
      "Was mit WLAN geschieht, solange das Kabel genutzt wird. Mit address bleibt der Funk an und WLAN "
      "verliert "
      "seine Adressen; so ist es am schnellsten zurück, und Dienste, die nur den Funk brauchen, arbeiten "
      "weiter. Mit service wird der Netzwerkdienst deaktiviert. Mit radio wird der Adapter abgeschaltet, "
      "etwa "
      "wo kein Funk senden darf."},
     wifiOffWords},
    {"UpdateFeedURL",
     {"Address of the update manifest", "Adresse des Update-Manifests"},
     {"Where Tarnlink looks for updates. The address begins with https://, any other is ignored and the "
      "vendor's own counts. Change it to hand out updates from a server of your own; what it offers must "
      "still carry the vendor's signature.",
      "Wo Tarnlink nach Updates sucht. Die Adresse beginnt mit https://, jede andere wird übergangen, und "
      "die "
      "des Herstellers gilt. Ändern, um Updates von einem eigenen Server zu verteilen; was er anbietet, muss "
      "weiterhin vom Hersteller signiert sein."}},
    {"UpdateCheck",
     {"Look for updates", "Nach Updates suchen"},
     {"Whether Tarnlink looks for updates by itself, once a day. With false users can still look themselves. "
      "Switch it off where software is distributed centrally.",
      "Ob Tarnlink einmal am Tag selbst nach Updates sucht. Mit false können Benutzer noch von Hand suchen. "
      "Abschalten, wo Software zentral verteilt wird."}},
    {"ProbeMode",
     {"How a wired path is verified", "Wie ein Kabelweg geprüft wird"},
     {"With dns Wi-Fi goes off only after a name server has answered through the cable, and comes back when "
      "it stops answering. With off every cable with an address and a router counts as good, even one "
      "that leads nowhere. Choose off only where no name server may be asked in this way.",
      "Mit dns wird WLAN erst abgeschaltet, wenn ein Nameserver über das Kabel geantwortet hat, und kommt "
      "zurück, wenn er nicht mehr antwortet. Mit off gilt jedes Kabel mit Adresse und Router als gut, auch "
      "eines, das nirgendwohin führt. off nur wählen, wo kein Nameserver so gefragt werden darf."},
     probeWords},
    {"ProbeName",
     {"Name that a probe asks for", "Name, nach dem gefragt wird"},
     {"The name that a name server is asked for. It does not have to exist: any answer proves that the "
      "server "
      "is alive. Change it where a filter blocks or reports names that do not exist.",
      "Der Name, nach dem ein Nameserver gefragt wird. Es muss ihn nicht geben: Jede Antwort beweist, dass "
      "der Server lebt. Ändern, wo ein Filter Namen sperrt oder meldet, die es nicht gibt."}},
    {"ProbeTimeoutSeconds",
     {"Time allowed for a probe", "Zeit für eine Prüfung"},
     {"Seconds that a name server has for its answer. Raise it on slow lines, where a good cable counts as "
      "broken; each probe of a dead one then takes longer.",
      "Sekunden, die ein Nameserver für seine Antwort hat. Auf langsamen Leitungen erhöhen, wo ein gutes "
      "Kabel als gestört gilt; jede Prüfung eines toten dauert dann länger."}},
    {"ProbeIntervalSeconds",
     {"Time between probes", "Zeit zwischen zwei Prüfungen"},
     {"Seconds between two probes of a wired path. A lower number notices sooner that a cable has stopped "
      "working and asks the name server more often.",
      "Sekunden zwischen zwei Prüfungen eines Kabelwegs. Eine kleinere Zahl bemerkt früher, dass ein Kabel "
      "nicht mehr trägt, und fragt den Nameserver öfter."}},
    {"ProbeFailuresBeforeFallback",
     {"Failed probes before Wi-Fi comes back", "Fehlgeschlagene Prüfungen, bis WLAN zurückkommt"},
     {"Number of probes in a row that must fail before a wired path counts as broken and Wi-Fi comes back. "
      "Raise it where single answers are lost; with 0 the first failure is enough.",
      "Anzahl der Prüfungen, die nacheinander fehlschlagen müssen, bis ein Kabelweg als gestört gilt und "
      "WLAN "
      "zurückkommt. Erhöhen, wo einzelne Antworten verloren gehen; bei 0 genügt der erste Fehlschlag."}},
    {"TrafficStallSeconds",
     {"Time without incoming traffic before a probe", "Zeit ohne eingehende Daten bis zu einer Prüfung"},
     {"Seconds for which data are sent over the cable without any coming back before a probe is sent at once "
      "instead of at its time. A lower number finds a dead line sooner.",
      "Sekunden, in denen über das Kabel Daten gesendet werden, ohne dass welche zurückkommen, bis sofort "
      "und "
      "nicht erst zur vorgesehenen Zeit geprüft wird. Eine kleinere Zahl erkennt eine tote Leitung früher."}},
    {"EventDebounceSeconds",
     {"Time over which changes are gathered", "Zeit, in der Änderungen gesammelt werden"},
     {"Seconds over which changes of the network are gathered before Tarnlink judges them. A higher number "
      "judges less often while a dock connects, and switches that much later.",
      "Sekunden, in denen Änderungen des Netzes gesammelt werden, bevor Tarnlink sie beurteilt. Eine größere "
      "Zahl urteilt seltener, während sich ein Dock verbindet, und schaltet um so viel später."}},
    {"MaxPauseMinutes",
     {"Longest pause", "Längste Pause"},
     {"Minutes for which an administrator may pause the protection at most, from 1 to 1440 (a day). Longer "
      "pauses are shortened to it. Any other number is ignored.",
      "Minuten, für die ein Administrator den Schutz höchstens pausieren darf, von 1 bis 1440 (ein Tag). "
      "Längere Pausen werden darauf gekürzt. Jede andere Zahl wird übergangen."}},
}};

} // namespace

const SettingTexts &SettingTexts::of(std::string_view key) {
    const auto found = std::ranges::find(table, key, &SettingTexts::key);
    if (found == table.end())
        throw std::out_of_range("no texts for " + std::string(key));
    return *found;
}

} // namespace tarn
